#include "velmora/ViewerPage.h"

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include "velmora/Assembly.h"

namespace velmora {

// Defined in the source generated from the viewer's bundle (empty without it).
extern const std::string_view kViewerScript;

namespace {

// Unpacks the viewer's script and runs it.
constexpr const char* kBootstrap =
    "(async () => {"
    "const packed = Uint8Array.from(atob(document.getElementById('velmora-viewer').textContent), (c) => c.charCodeAt(0));"
    "const stream = new Blob([packed]).stream().pipeThrough(new DecompressionStream('gzip'));"
    "const script = document.createElement('script');"
    "script.textContent = await new Response(stream).text();"
    "document.body.append(script);"
    "})();";

std::string htmlEscaped(const std::string& text)
{
    std::string out;
    for (char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        default: out += c;
        }
    }
    return out;
}

}  // namespace

std::string_view viewerScript() { return kViewerScript; }

std::vector<unsigned char> gzipped(const std::vector<unsigned char>& bytes)
{
    z_stream stream{};
    constexpr int kGzipWindow = 15 + 16;  // zlib's flag for a gzip header and trailer
    if (deflateInit2(&stream, 6, Z_DEFLATED, kGzipWindow, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error("gzip: cannot start the compressor");
    std::vector<unsigned char> out(deflateBound(&stream, uLong(bytes.size())) + 32);
    stream.next_in = const_cast<unsigned char*>(bytes.data());
    stream.avail_in = uInt(bytes.size());
    stream.next_out = out.data();
    stream.avail_out = uInt(out.size());
    const int status = deflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    if (status != Z_STREAM_END)
        throw std::runtime_error("gzip: the compressor did not finish");
    return out;
}

bool viewerBuiltIn() { return !kViewerScript.empty(); }

void requireViewer()
{
    if (!viewerBuiltIn())
        throw InputError("--html: built without the viewer");
}

std::string base64(const std::vector<unsigned char>& bytes)
{
    static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t n = std::min<size_t>(3, bytes.size() - i);
        uint32_t word = uint32_t(bytes[i]) << 16;
        if (n > 1)
            word |= uint32_t(bytes[i + 1]) << 8;
        if (n > 2)
            word |= uint32_t(bytes[i + 2]);
        for (size_t k = 0; k < 4; ++k)
            out += k <= n ? kAlphabet[(word >> (18 - 6 * k)) & 63] : '=';
    }
    return out;
}

std::string scriptSafeJson(const Json& json)
{
    const std::string text = json.dump();
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        out += text[i];
        if (text[i] == '<' && i + 1 < text.size() && text[i + 1] == '/')
            out += '\\';
    }
    return out;
}

std::string viewerPage(const std::string& title, const std::vector<unsigned char>& glb, const Json& report)
{
    requireViewer();
    std::string page = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                       "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                       "<meta name=\"generator\" content=\"velmora\">\n<title>" +
                       htmlEscaped(title) + "</title>\n</head>\n<body>\n";
    page += "<script id=\"velmora-report\" type=\"application/json\">";
    page += report.is_null() ? std::string() : scriptSafeJson(report);
    page += "</script>\n<script id=\"velmora-glb\" type=\"application/octet-stream\" data-encoding=\"gzip\">";
    page += base64(gzipped(glb));
    page += "</script>\n<script id=\"velmora-viewer\" type=\"application/octet-stream\" data-encoding=\"gzip\">";
    page += kViewerScript;
    page += "</script>\n<script>";
    page += kBootstrap;
    page += "</script>\n</body>\n</html>\n";
    return page;
}

}  // namespace velmora
