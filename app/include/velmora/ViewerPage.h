// The self-contained HTML page that shows a plan in a browser: the viewer's
// script (bundled at build time and linked in), the binary glTF and the
// report embedded in it. The page fetches nothing, so it opens from disk and
// can be mailed as one file.
//
// The script and the GLB are gzip-compressed and base64-encoded (the page
// unpacks them with the browser's DecompressionStream); the report is JSON.
// The embedded text never ends its <script> element early: "</" in the JSON
// is written "<\/", the base64 alphabet has no '<'.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "velmora/Report.h"

namespace velmora {

// Whether this build carries the viewer's script (built with node and npm).
bool viewerBuiltIn();

// Throws InputError "built without the viewer" when the script is missing;
// commands call it before their long work.
void requireViewer();

// Standard base64 (RFC 4648, with '=' padding).
std::string base64(const std::vector<unsigned char>& bytes);

// `bytes` as a gzip stream (RFC 1952).
std::vector<unsigned char> gzipped(const std::vector<unsigned char>& bytes);

// `json` as text that can sit inside an HTML <script> element.
std::string scriptSafeJson(const Json& json);

// The page's HTML: `title` (escaped) in its <title>, the GLB and the report
// (null: none) embedded. Throws like requireViewer().
std::string viewerPage(const std::string& title, const std::vector<unsigned char>& glb, const Json& report);

// The script the page runs, gzip-compressed and base64-encoded; empty when
// this build has none.
std::string_view viewerScript();

}  // namespace velmora
