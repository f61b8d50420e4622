// The inspector's page, built into memtool from apps/memtool/inspector/
// (inspector.html with inspector.css and inspector.js put inline), and its
// content security policy, which lets that script and style run and nothing
// else, and lets the page talk to its own server only.
#pragma once

#include <string_view>

extern const std::string_view INSPECTOR_PAGE;
extern const std::string_view INSPECTOR_PAGE_POLICY;
