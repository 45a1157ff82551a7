// A strict STL reader, ASCII and binary. A file is binary when its size is
// exactly what its triangle count says (84 + 50 per triangle), ASCII when it
// starts with "solid" and is not binary; anything else is an error, and so is
// an ASCII file that ends before "endsolid" or a binary one whose size does
// not match its count. Corners that are the same point become one vertex.
// Every solid of an ASCII file is one mesh named after the solid.
#include <algorithm>
#include <charconv>
#include <cstring>
#include <fstream>
#include <unordered_map>

#include "SourceFile.h"
#include "velmora/Assembly.h"

namespace velmora {
namespace {

constexpr size_t kBinaryHeader = 84;
constexpr size_t kBinaryTriangle = 50;

// Builds one mesh, joining corners with the same coordinates.
class MeshBuilder {
public:
    void addCorner(const float xyz[3])
    {
        Key key{};
        for (int i = 0; i < 3; ++i) {
            const float value = xyz[i] + 0.0f;  // -0 and 0 are one coordinate
            std::memcpy(&key.bits[i], &value, sizeof(float));
        }
        const auto [it, added] = mIndex.try_emplace(key, unsigned(mMesh.positions.size()));
        if (added)
            mMesh.positions.emplace_back(xyz[0], xyz[1], xyz[2]);
        mMesh.indices.push_back(it->second);
    }
    SourceMesh take() { return std::move(mMesh); }

private:
    struct Key {
        uint32_t bits[3];
        bool operator==(const Key& o) const { return std::memcmp(bits, o.bits, sizeof bits) == 0; }
    };
    struct KeyHash {
        size_t operator()(const Key& k) const
        {
            return (size_t(k.bits[0]) * 73856093u) ^ (size_t(k.bits[1]) * 19349663u) ^ (size_t(k.bits[2]) * 83492791u);
        }
    };
    SourceMesh mMesh;
    std::unordered_map<Key, unsigned, KeyHash> mIndex;
};

void addSingleInstance(SourceFile& out, SourceMesh mesh, const std::string& name)
{
    out.instances.push_back({"", "", name, true, int(out.meshes.size()), {}, std::nullopt});
    out.meshes.push_back(std::move(mesh));
}

SourceFile parseBinary(const std::string& bytes)
{
    uint32_t count = 0;
    std::memcpy(&count, bytes.data() + 80, 4);
    MeshBuilder mesh;
    for (size_t t = 0; t < count; ++t) {
        const char* triangle = bytes.data() + kBinaryHeader + t * kBinaryTriangle;
        for (int corner = 0; corner < 3; ++corner) {
            float xyz[3];
            std::memcpy(xyz, triangle + 12 + 12 * corner, sizeof xyz);  // after the normal
            mesh.addCorner(xyz);
        }
    }
    SourceFile out;
    addSingleInstance(out, mesh.take(), "");
    return out;
}

// A word of the file in quotes, cut short when long.
std::string quoted(std::string_view word)
{
    std::string text(1, '\'');
    text.append(word.substr(0, 40)).push_back('\'');
    return text;
}

// Whitespace-separated words of an ASCII STL, with the line of each for errors.
class Words {
public:
    Words(const std::string& text, const std::string& file) : mText(text), mFile(file) {}

    bool atEnd()
    {
        skipSpace();
        return mPos == mText.size();
    }
    std::string_view next()
    {
        skipSpace();
        const size_t start = mPos;
        while (mPos < mText.size() && !std::isspace((unsigned char)mText[mPos]))
            ++mPos;
        return std::string_view(mText).substr(start, mPos - start);
    }
    // The rest of the current line, trimmed (a solid's name).
    std::string restOfLine()
    {
        const size_t end = std::min(mText.find('\n', mPos), mText.size());
        std::string rest = mText.substr(mPos, end - mPos);
        mPos = end;
        const size_t first = rest.find_first_not_of(" \t\r");
        const size_t last = rest.find_last_not_of(" \t\r");
        return first == std::string::npos ? std::string() : rest.substr(first, last - first + 1);
    }
    void expect(std::string_view word)
    {
        const std::string_view got = next();
        if (got != word)
            fail("expected '" + std::string(word) + "'" + (got.empty() ? " but the file ends" : ", found " + quoted(got)));
    }
    float number()
    {
        const std::string_view word = next();
        float value = 0;
        const char* begin = word.data();
        if (!word.empty() && word[0] == '+')
            ++begin;
        const auto [end, ec] = std::from_chars(begin, word.data() + word.size(), value);
        if (word.empty())
            fail("a number is missing at the end of the file");
        if (end != word.data() + word.size() || ec == std::errc::invalid_argument)
            fail(quoted(word) + " is not a number");
        if (ec == std::errc::result_out_of_range)
            fail(quoted(word) + " is out of the range of a float");
        return value;
    }
    [[noreturn]] void fail(const std::string& why) const
    {
        // At the end of the file, the line of the last word.
        const size_t lastWordEnd = mText.find_last_not_of(" \t\r\n") + 1;  // 0 when there is none
        const size_t at = mPos < mText.size() ? mPos : lastWordEnd;
        const size_t line = 1 + size_t(std::count(mText.begin(), mText.begin() + std::ptrdiff_t(at), '\n'));
        throw InputError(mFile + ": cannot read: line " + std::to_string(line) + ": " + why);
    }

private:
    void skipSpace()
    {
        while (mPos < mText.size() && std::isspace((unsigned char)mText[mPos]))
            ++mPos;
    }
    const std::string& mText;
    const std::string& mFile;
    size_t mPos = 0;
};

SourceFile parseAscii(const std::string& text, const std::string& file)
{
    SourceFile out;
    Words words(text, file);
    while (!words.atEnd()) {
        words.expect("solid");
        const std::string name = words.restOfLine();
        MeshBuilder mesh;
        for (std::string_view word = words.next(); word != "endsolid"; word = words.next()) {
            if (word != "facet")
                words.fail(word.empty() ? "the file ends before 'endsolid'"
                                        : "expected 'facet' or 'endsolid', found " + quoted(word));
            words.expect("normal");
            for (int i = 0; i < 3; ++i)
                words.number();
            words.expect("outer");
            words.expect("loop");
            for (int corner = 0; corner < 3; ++corner) {
                words.expect("vertex");
                const float xyz[3] = {words.number(), words.number(), words.number()};
                mesh.addCorner(xyz);
            }
            words.expect("endloop");
            words.expect("endfacet");
        }
        words.restOfLine();  // the name repeated after endsolid
        addSingleInstance(out, mesh.take(), name);
    }
    return out;
}

bool startsWithSolid(const std::string& bytes)
{
    const size_t first = bytes.find_first_not_of(" \t\r\n");
    return first != std::string::npos && bytes.compare(first, 5, "solid") == 0 &&
           (first + 5 == bytes.size() || std::isspace((unsigned char)bytes[first + 5]));
}

}  // namespace

SourceFile parseStl(const std::string& bytes, const std::string& file)
{
    if (bytes.size() >= kBinaryHeader) {
        uint32_t count = 0;
        std::memcpy(&count, bytes.data() + 80, 4);
        if (bytes.size() == kBinaryHeader + kBinaryTriangle * size_t(count))
            return parseBinary(bytes);
        if (!startsWithSolid(bytes))
            throw InputError(file + ": cannot read: a binary STL with a count of " + std::to_string(count) +
                             " triangles has " + std::to_string(kBinaryHeader + kBinaryTriangle * size_t(count)) +
                             " bytes, this file " + std::to_string(bytes.size()));
    }
    if (!startsWithSolid(bytes))
        throw InputError(file + ": cannot read: neither an ASCII STL (no 'solid') nor a complete binary one");
    return parseAscii(bytes, file);
}

SourceFile readStl(const std::string& file)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw InputError(file + ": cannot open the file");
    return parseStl(std::string(std::istreambuf_iterator<char>(in), {}), file);
}

}  // namespace velmora
