#!/usr/bin/python3
"""Builds the inspector page into memtool: the HTML with its style sheet and
script put inline, as one C++ string, and the page's content security policy,
which allows that script and that style sheet (by their SHA-256) and no other.

  embed.py PAGE.html STYLE.css SCRIPT.js OUTPUT.cpp

The page must stay under 100 KB; a larger one stops the build.
"""

import base64
import hashlib
import sys

LIMIT = 100 * 1024
DELIMITER = "inspector_page"


def digest(text):
    return "'sha256-" + base64.b64encode(hashlib.sha256(text.encode()).digest()).decode() + "'"


def main():
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    html_path, css_path, js_path, output = sys.argv[1:]
    with open(html_path, encoding="utf-8") as f:
        page = f.read()
    with open(css_path, encoding="utf-8") as f:
        style = f.read()
    with open(js_path, encoding="utf-8") as f:
        script = f.read()
    links = {'<link rel="stylesheet" href="inspector.css">': ("style", style),
             '<script src="inspector.js"></script>': ("script", script)}
    for link, (tag, text) in links.items():
        if page.count(link) != 1:
            sys.exit(f"embed.py: {html_path} must hold {link} once")
        if f"</{tag}" in text.lower():
            sys.exit(f"embed.py: the {tag} holds '</{tag}', which would end it early")
        page = page.replace(link, f"<{tag}>\n{text}</{tag}>")
    size = len(page.encode())
    if size >= LIMIT:
        sys.exit(f"embed.py: the page has {size} bytes; it must stay under {LIMIT}")
    if f"){DELIMITER}\"" in page:
        sys.exit("embed.py: the page holds the raw string's delimiter")
    policy = ("default-src 'none'; "
              f"script-src {digest(chr(10) + script)}; "
              f"style-src {digest(chr(10) + style)}; "
              "connect-src 'self'; img-src data:; base-uri 'none'; form-action 'none'; "
              "frame-ancestors 'none'")
    with open(output, "w", encoding="utf-8") as f:
        f.write("// Made by apps/memtool/inspector/embed.py from the inspector's page, style\n"
                "// sheet and script; edit those.\n"
                '#include "inspectorpage.h"\n\n'
                f"const std::string_view INSPECTOR_PAGE = R\"{DELIMITER}({page}){DELIMITER}\";\n"
                f"const std::string_view INSPECTOR_PAGE_POLICY = \"{policy}\";\n")


if __name__ == "__main__":
    main()
