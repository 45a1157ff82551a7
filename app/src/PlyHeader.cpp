// A look at a PLY header before the file is handed to a parser: the element
// counts it declares must fit in the bytes that follow it, so a 100-byte
// file cannot make a parser reserve room for a billion vertices.
#include <fstream>
#include <sstream>

#include "SourceFile.h"
#include "velmora/Assembly.h"

namespace velmora {
namespace {

constexpr size_t kLongestHeader = 1 << 20;

// The fewest bytes one value of a scalar type takes in binary, 0 when unknown.
size_t binarySize(const std::string& type)
{
    if (type == "char" || type == "uchar" || type == "int8" || type == "uint8")
        return 1;
    if (type == "short" || type == "ushort" || type == "int16" || type == "uint16")
        return 2;
    if (type == "int" || type == "uint" || type == "float" || type == "int32" || type == "uint32" ||
        type == "float32")
        return 4;
    if (type == "double" || type == "float64")
        return 8;
    return 0;
}

}  // namespace

void checkPlyHeader(const std::string& file)
{
    std::ifstream in(file, std::ios::binary);
    std::string line;
    bool ascii = false;
    size_t headerBytes = 0;
    size_t needed = 0;      // the fewest bytes the declared elements take
    size_t count = 0;       // of the element being declared
    size_t elementBytes = 0;
    auto closeElement = [&] {
        size_t bytes = 0;
        if (__builtin_mul_overflow(count, elementBytes, &bytes) || __builtin_add_overflow(needed, bytes, &needed))
            needed = SIZE_MAX;
        count = elementBytes = 0;
    };
    while (std::getline(in, line) && headerBytes < kLongestHeader) {
        headerBytes += line.size() + 1;
        std::istringstream words(line);
        std::string keyword;
        words >> keyword;
        if (keyword == "format") {
            std::string format;
            words >> format;
            ascii = format == "ascii";
        } else if (keyword == "element") {
            closeElement();
            std::string name;
            unsigned long long declared = 0;
            words >> name >> declared;
            count = size_t(declared);
        } else if (keyword == "property") {
            std::string type;
            words >> type;
            // A list may be empty: only its length counts. In text every value takes a digit and a blank.
            elementBytes += ascii ? 2 : binarySize(type == "list" ? (words >> type, type) : type);
        } else if (keyword == "end_header") {
            closeElement();
            in.seekg(0, std::ios::end);
            const size_t body = size_t(in.tellg()) - std::min(size_t(in.tellg()), headerBytes);
            if (needed > body)
                throw InputError(file + ": cannot read: the header declares more data than the file holds");
            return;
        }
    }
}

}  // namespace velmora
