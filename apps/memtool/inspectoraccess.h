// Who may use the inspector of `memtool serve`: requests that name the
// server by one of its own addresses, come from its own page (or from no page
// at all) and carry the token.
//
// - Host: an address literal or "localhost", never another name.  A web page
//   elsewhere that makes its name point at this machine (DNS rebinding) thus
//   never gets an answer.  On a server that listens on a loopback address
//   every loopback literal and "localhost" are its own; on one that listens
//   on every address (0.0.0.0, [::]) every literal and "localhost"; otherwise
//   only the address it listens on.  The port is not compared: an ssh port
//   forward may bring the server to a browser under another port.
// - Origin: absent (a program, not a page), or "http://" followed by the
//   request's own Host, so that no other page's script can drive it.
// - Token: the header "Authorization: Bearer TOKEN" or the query parameter
//   "token=TOKEN", compared in constant time.
#pragma once

#include "httprequest.h"
#include "httpserver.h"
#include "result.h"

#include <string>

bool isOwnHost(const std::string& host, const ListenAddress& listening);
bool isOwnOrigin(const std::optional<std::string>& origin, const std::string& host);
bool carriesToken(const HttpRequest& request, const std::string& token);
// 32 hexadecimal digits from the kernel's random numbers; an error when the
// kernel gives none.
Result<std::string> randomToken();
