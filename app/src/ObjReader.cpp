// A strict Wavefront OBJ reader with its MTL material libraries, in this
// process and in one pass over the file's bytes.
//
// Parts come out as they always have: every object ('o') and every group
// ('g') is a node; within a node a new mesh starts when 'usemtl' switches to
// another material after faces; meshes that differ only by material are
// joined by the importer. A repeated 'o' name goes back to that object but
// keeps adding faces to the mesh in use, a repeated 'g' name starts a new
// node. Faces before any 'o' or 'g' go to an object named "defaultobject".
// Quadrilaterals are split along the diagonal from their concave corner
// (or the first), larger polygons as a fan from their first corner. Corners that
// are the same vertex (same position, and same normal and texture
// coordinate when the mesh has them) become one vertex, numbered in the order
// the faces first use them. Numbers are rounded the way this importer has
// always rounded them (see decimalNumber), so every coordinate and every
// result built on it stays bit for bit the same.
//
// Strict: a malformed number, a vertex with other than 3, 4 or 6 numbers, a
// face corner that is not a whole number, an index 0, a relative index
// before the first vertex, an index past the last one (checked at the end,
// as a face may use vertices defined after it) or a face with fewer than
// three corners is an error naming the line. Statements other than v, vt,
// vn, f, o, g, usemtl and mtllib (lines, points, smoothing groups, curves…)
// are skipped. Memory stays proportional to the file's size.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>

#include "SourceFile.h"
#include "velmora/Assembly.h"

namespace velmora {
namespace {

constexpr uint32_t kNone = std::numeric_limits<uint32_t>::max();
constexpr const char* kDefaultObjectName = "defaultobject";
constexpr const char* kDefaultMaterialName = "DefaultMaterial";
constexpr size_t kFractionDigits = 15;
constexpr double kFractionScale[kFractionDigits + 1] = {0.0,   0.1,   0.01,   0.001,   1e-4,   1e-5,   1e-6,  1e-7,
                                                        1e-8,  1e-9,  1e-10,  1e-11,   1e-12,  1e-13,  1e-14, 1e-15};

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool equalsIgnoringCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower((unsigned char)x) == std::tolower((unsigned char)y);
           });
}

// Reads decimal digits at `at` into `value`; false when they overflow 64 bits.
bool readDigits(std::string_view word, size_t& at, uint64_t& value, size_t maxDigits, size_t& read)
{
    for (read = 0; at < word.size() && isDigit(word[at]); ++at) {
        if (read == maxDigits)
            continue;  // digits past the precision kept are read over
        const uint64_t next = value * 10 + uint64_t(word[at] - '0');
        if (value > (std::numeric_limits<uint64_t>::max() - 9) / 10 && next / 10 != value)
            return false;
        value = next;
        ++read;
    }
    return true;
}

// A whole word as a decimal number: [sign] digits [. digits] [e [sign]
// digits], ". digits" or "nan", "inf", "infinity". The whole part and at
// most 15 fraction digits are converted separately and added in single
// precision, then scaled by the power of ten: not always the nearest float,
// but what the meshes read here were always made of. nullopt when the word
// is not such a number or a part of it overflows.
std::optional<float> decimalNumber(std::string_view word)
{
    size_t at = 0;
    const bool negative = !word.empty() && word[0] == '-';
    if (negative || (!word.empty() && word[0] == '+'))
        ++at;
    const std::string_view rest = word.substr(at);
    if (equalsIgnoringCase(rest, "nan"))
        return std::numeric_limits<float>::quiet_NaN();
    if (equalsIgnoringCase(rest, "inf") || equalsIgnoringCase(rest, "infinity"))
        return negative ? -std::numeric_limits<float>::infinity() : std::numeric_limits<float>::infinity();
    const bool leadingPoint = at + 1 < word.size() && word[at] == '.' && isDigit(word[at + 1]);
    if (at == word.size() || !(isDigit(word[at]) || leadingPoint))
        return std::nullopt;
    uint64_t whole = 0;
    size_t read = 0;
    if (!readDigits(word, at, whole, std::numeric_limits<size_t>::max(), read))
        return std::nullopt;
    float value = float(whole);
    if (at + 1 < word.size() && word[at] == '.' && isDigit(word[at + 1])) {
        uint64_t fraction = 0;
        ++at;
        readDigits(word, at, fraction, kFractionDigits, read);
        value += float(double(fraction) * kFractionScale[read]);
    } else if (at < word.size() && word[at] == '.') {
        ++at;
    }
    if (at < word.size() && (word[at] == 'e' || word[at] == 'E')) {
        ++at;
        const bool negativeExponent = at < word.size() && word[at] == '-';
        if (at < word.size() && (word[at] == '-' || word[at] == '+'))
            ++at;
        uint64_t exponent = 0;
        if (!readDigits(word, at, exponent, std::numeric_limits<size_t>::max(), read) || read == 0)
            return std::nullopt;
        value *= std::pow(10.0f, negativeExponent ? -float(exponent) : float(exponent));
    }
    if (at != word.size())
        return std::nullopt;
    return negative ? -value : value;
}

// A word of the file in quotes, cut short when long.
std::string quoted(std::string_view word)
{
    std::string text(1, '\'');
    text.append(word.substr(0, 40)).push_back('\'');
    return text;
}

// The text of a file, one line at a time, split into words; errors name the
// file and the line.
class Lines {
public:
    Lines(std::string_view text, const std::string& file) : mText(text), mFile(file) {}

    // Moves to the next line; false at the end of the text.
    bool next()
    {
        if (mNext > mText.size())
            return false;
        const size_t end = std::min(mText.find('\n', mNext), mText.size());
        mLine = mText.substr(mNext, end - mNext);
        mNext = end + 1;
        ++mNumber;
        return true;
    }
    // The next word of the line, empty at its end.
    std::string_view word()
    {
        size_t at = 0;
        while (at < mLine.size() && isBlank(mLine[at]))
            ++at;
        if (at < mLine.size() && mLine[at] == '#')
            at = mLine.size();  // a comment to the end of the line
        size_t end = at;
        while (end < mLine.size() && !isBlank(mLine[end]))
            ++end;
        const std::string_view word = mLine.substr(at, end - at);
        mLine.remove_prefix(end);
        return word;
    }
    // The rest of the line after the blanks that start it, without a
    // carriage return that ends it (a group's name, blanks after it kept).
    std::string_view rest()
    {
        const size_t first = std::find_if_not(mLine.begin(), mLine.end(), isBlank) - mLine.begin();
        size_t last = mLine.size();
        if (last > first && mLine[last - 1] == '\r')
            --last;
        const std::string_view rest = mLine.substr(first, last - first);
        mLine = {};
        return rest;
    }
    // The rest of the line without the blanks around it (a material's name).
    std::string_view trimmedRest()
    {
        std::string_view rest = this->rest();
        while (!rest.empty() && isBlank(rest.back()))
            rest.remove_suffix(1);
        return rest;
    }
    float number()
    {
        const std::string_view w = word();
        if (w.empty())
            fail("a number is missing");
        const std::optional<float> value = decimalNumber(w);
        if (!value)
            fail(quoted(w) + " is not a number");
        return *value;
    }
    // The numbers left on the line, `min` to `max` of them, into `out`.
    size_t numbers(float* out, size_t min, size_t max, const char* what)
    {
        size_t count = 0;
        for (std::string_view w = word(); !w.empty(); w = word()) {
            const std::optional<float> value = decimalNumber(w);
            if (!value)
                fail(quoted(w) + " is not a number");
            if (count == max)
                fail(std::string(what) + " has more than " + std::to_string(max) + " numbers");
            out[count++] = *value;
        }
        if (count < min)
            fail(std::string(what) + " has " + std::to_string(count) + " numbers, fewer than " + std::to_string(min));
        return count;
    }
    [[noreturn]] void fail(const std::string& why) const
    {
        throw InputError(mFile + ": cannot read: line " + std::to_string(mNumber) + ": " + why);
    }

private:
    std::string_view mText;
    const std::string& mFile;
    std::string_view mLine;
    size_t mNext = 0;
    size_t mNumber = 0;
};

std::string readWholeFile(const std::filesystem::path& path, const std::string& file)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw InputError(file + ": cannot open the file");
    std::string bytes;
    in.seekg(0, std::ios::end);
    bytes.resize(size_t(std::max<std::streamoff>(in.tellg(), 0)));
    in.seekg(0);
    in.read(bytes.data(), std::streamsize(bytes.size()));
    bytes.resize(size_t(in.gcount()));
    return bytes;
}

struct Material {
    std::string name;
    Colour colour{0.6f, 0.6f, 0.6f, 1.0f};  // what a material gets when its library does not say
};

using MaterialLibrary = std::vector<Material>;

float unitInterval(float c) { return std::isfinite(c) ? std::clamp(c, 0.0f, 1.0f) : 1.0f; }

// One corner of a face: indices into the file's positions, texture
// coordinates and normals (kNone when the corner gives none).
struct Corner {
    uint32_t position = kNone, uv = kNone, normal = kNone;
};

struct ObjMesh {
    std::string name;
    int material = -1;  // into the file's materials; -1: none
    std::vector<Corner> corners;
    std::vector<uint32_t> faceSizes;
    bool hasNormals = false, hasUvs = false;
};

struct ObjObject {
    std::string name;
    std::vector<size_t> meshes;
};

// Everything a file defines, in the order it defines it.
class ObjContent {
public:
    ObjContent(const std::string& file, const MaterialLibraries& libraries) : mFile(file), mLibraries(libraries) {}

    void parse(std::string_view text)
    {
        Lines lines(text, mFile);
        while (lines.next()) {
            const std::string_view keyword = lines.word();
            if (keyword == "v")
                addVertex(lines);
            else if (keyword == "vn")
                addTriple(lines, mNormals, 3, 3, "a normal");
            else if (keyword == "vt")
                addTriple(lines, mUvs, 1, 3, "a texture coordinate");
            else if (keyword == "f")
                addFace(lines);
            else if (keyword == "o")
                selectObject(std::string(lines.word()));
            else if (keyword == "g")
                selectGroup(std::string(lines.rest()));
            else if (keyword == "usemtl")
                useMaterial(std::string(lines.trimmedRest()));
            else if (keyword == "mtllib")
                readLibrary(std::string(lines.trimmedRest()));
        }
    }

    SourceFile toSourceFile() const
    {
        SourceFile out;
        for (const ObjObject& object : mObjects) {
            std::vector<size_t> meshes;
            std::copy_if(object.meshes.begin(), object.meshes.end(), std::back_inserter(meshes),
                         [&](size_t m) { return !mMeshes[m].faceSizes.empty(); });
            for (size_t m : meshes) {
                out.instances.push_back({object.name, object.name, mMeshes[m].name, meshes.size() == 1,
                                         int(out.meshes.size()), {}, std::nullopt});
                out.meshes.push_back(sourceMesh(mMeshes[m]));
            }
        }
        return out;
    }

    // Reads a material library, once: naming it again only makes its last
    // material the one in use again.
    void readLibrary(const std::string& name)
    {
        const auto [known, first] = mLastMaterialOfLibrary.try_emplace(name, -1);
        if (!first) {
            if (known->second >= 0)
                mCurrentMaterial = known->second;
            return;
        }
        std::string where;
        const std::optional<std::string> text = mLibraries ? mLibraries(name, where) : std::nullopt;
        if (!text)
            return;  // a missing library leaves its materials grey, as it always has
        Lines lines(*text, where);
        // The last material a library defines is the one in use after it.
        Material* current = nullptr;
        while (lines.next()) {
            const std::string_view keyword = lines.word();
            if (keyword == "newmtl") {
                const std::string_view name = lines.trimmedRest();
                mCurrentMaterial = int(materialIndex(name.empty() ? kDefaultMaterialName : std::string(name)));
                known->second = mCurrentMaterial;
                current = &mMaterials[size_t(mCurrentMaterial)];
            } else if (current == nullptr) {
                continue;
            } else if (keyword == "Kd") {
                float rgb[3];
                lines.numbers(rgb, 3, 3, "a diffuse colour");
                std::tie(current->colour.r, current->colour.g, current->colour.b) = std::tie(rgb[0], rgb[1], rgb[2]);
            } else if (keyword == "d") {
                current->colour.a = lines.number();
            } else if (keyword == "Tr") {
                current->colour.a = 1.0f - lines.number();
            }
        }
    }

private:
    void addVertex(Lines& lines)
    {
        float v[6];
        const size_t count = lines.numbers(v, 3, 6, "a vertex");
        if (count == 5)
            lines.fail("a vertex has 5 numbers (expected x y z, x y z w or x y z r g b)");
        if (count == 4) {
            if (v[3] == 0.0f)
                lines.fail("a vertex has the weight 0");
            v[0] /= v[3], v[1] /= v[3], v[2] /= v[3];
        }
        mPositions.insert(mPositions.end(), v, v + 3);  // a colour after the position is not used
    }

    static void addTriple(Lines& lines, std::vector<float>& out, size_t min, size_t max, const char* what)
    {
        float v[3] = {0, 0, 0};
        lines.numbers(v, min, max, what);
        out.insert(out.end(), v, v + 3);
    }

    // One index of a face corner: 1-based, or negative counting back from the
    // last one defined so far.
    static uint32_t cornerIndex(Lines& lines, std::string_view text, size_t definedSoFar)
    {
        long long value = 0;
        const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (text.empty() || ec != std::errc() || end != text.data() + text.size())
            lines.fail(quoted(text) + " is not a vertex index");
        if (value == 0)
            lines.fail("the vertex index 0 (indices start at 1)");
        if (value < 0 && -value > (long long)definedSoFar)
            lines.fail("the relative index " + std::string(text) + " points before the first one");
        if (value > (long long)kNone - 1)
            lines.fail("the index " + std::string(text) + " is out of range");
        return value > 0 ? uint32_t(value - 1) : uint32_t((long long)definedSoFar + value);
    }

    void addFace(Lines& lines)
    {
        ObjMesh& mesh = currentMesh();
        uint32_t size = 0;
        for (std::string_view w = lines.word(); !w.empty(); w = lines.word(), ++size) {
            const size_t slash = w.find('/');
            const size_t slash2 = slash == w.npos ? w.npos : w.find('/', slash + 1);
            Corner corner;
            corner.position = cornerIndex(lines, w.substr(0, slash), mPositions.size() / 3);
            if (slash != w.npos) {
                const std::string_view uv = w.substr(slash + 1, slash2 == w.npos ? w.npos : slash2 - slash - 1);
                if (!uv.empty())
                    corner.uv = cornerIndex(lines, uv, mUvs.size() / 3);
                if (slash2 != w.npos)
                    corner.normal = cornerIndex(lines, w.substr(slash2 + 1), mNormals.size() / 3);
            }
            mesh.hasUvs |= corner.uv != kNone;
            mesh.hasNormals |= corner.normal != kNone;
            mesh.corners.push_back(corner);
        }
        if (size < 3)
            lines.fail("a face has " + std::to_string(size) + " corners, fewer than 3");
        mesh.faceSizes.push_back(size);
    }

    ObjMesh& currentMesh()
    {
        if (mCurrentObject == kNoObject)
            addObject(kDefaultObjectName);
        return mMeshes[mCurrentMesh];
    }

    void addMesh(const std::string& name)
    {
        mMeshes.push_back({name, -1, {}, {}, false, false});
        mCurrentMesh = mMeshes.size() - 1;
        if (mCurrentObject != kNoObject)
            mObjects[mCurrentObject].meshes.push_back(mCurrentMesh);
    }

    void addObject(const std::string& name)
    {
        mObjects.push_back({name, {}});
        mCurrentObject = mObjects.size() - 1;
        mFirstObjectNamed.try_emplace(name, mCurrentObject);
        addMesh(name);
        mMeshes[mCurrentMesh].material = mCurrentMaterial;
    }

    void selectObject(const std::string& name)
    {
        if (name.empty())
            return;
        const auto known = mFirstObjectNamed.find(name);
        if (known == mFirstObjectNamed.end())
            addObject(name);
        else
            mCurrentObject = known->second;
    }

    void selectGroup(const std::string& name)
    {
        if (name.empty() || name == mCurrentGroup)
            return;
        addObject(name);
        mCurrentGroup = name;
    }

    void useMaterial(const std::string& name)
    {
        if (name.empty() || (mCurrentMaterial >= 0 && mMaterials[size_t(mCurrentMaterial)].name == name))
            return;
        mCurrentMaterial = int(materialIndex(name));
        const bool meshInUseHasFaces = mCurrentMesh != kNoMesh && !mMeshes[mCurrentMesh].faceSizes.empty() &&
                                       mMeshes[mCurrentMesh].material >= 0;
        if (mCurrentMesh == kNoMesh || (meshInUseHasFaces && mMeshes[mCurrentMesh].material != mCurrentMaterial))
            addMesh(name);
        mMeshes[mCurrentMesh].material = mCurrentMaterial;
    }

    size_t materialIndex(const std::string& name)
    {
        const auto [it, added] = mMaterialIndex.try_emplace(name, mMaterials.size());
        if (added)
            mMaterials.push_back({name});
        return it->second;
    }

    std::optional<Colour> colourOf(int material) const
    {
        if (material < 0 || mMaterials[size_t(material)].name == kDefaultMaterialName)
            return std::nullopt;
        const Colour& c = mMaterials[size_t(material)].colour;
        return Colour{unitInterval(c.r), unitInterval(c.g), unitInterval(c.b), unitInterval(c.a)};
    }

    SourceMesh sourceMesh(const ObjMesh& mesh) const;

    // The unit vector from corner `from` to corner `to` (zero stays zero).
    std::array<float, 3> direction(const Corner& from, const Corner& to) const
    {
        const float* a = &mPositions[size_t(from.position) * 3];
        const float* b = &mPositions[size_t(to.position) * 3];
        std::array<float, 3> d = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
        const float length = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
        if (length != 0.0f) {
            const float inverse = 1.0f / length;
            d = {d[0] * inverse, d[1] * inverse, d[2] * inverse};
        }
        return d;
    }

    // The corner a quadrilateral is split from: the first corner whose angles
    // to its two neighbours, measured from the diagonal, add up to more than
    // a half turn (the concave one), else the first corner; both triangles
    // then share the diagonal from it, as this reader has always split them.
    uint32_t quadSplitCorner(const Corner* quad) const
    {
        constexpr float kHalfTurn = 3.1415926538f;
        auto dot = [](const std::array<float, 3>& a, const std::array<float, 3>& b) {
            return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
        };
        for (uint32_t i = 0; i < 4; ++i) {
            const std::array<float, 3> diagonal = direction(quad[i], quad[(i + 2) % 4]);
            const float angle = std::acos(dot(direction(quad[i], quad[(i + 3) % 4]), diagonal)) +
                                std::acos(dot(direction(quad[i], quad[(i + 1) % 4]), diagonal));
            if (angle > kHalfTurn)
                return i;
        }
        return 0;
    }

    static constexpr size_t kNoObject = std::numeric_limits<size_t>::max();
    static constexpr size_t kNoMesh = std::numeric_limits<size_t>::max();

    const std::string& mFile;
    const MaterialLibraries& mLibraries;
    std::vector<float> mPositions, mUvs, mNormals;  // three per item
    std::vector<ObjMesh> mMeshes;
    std::vector<ObjObject> mObjects;
    std::vector<Material> mMaterials;
    std::map<std::string, size_t> mMaterialIndex;
    std::map<std::string, size_t> mFirstObjectNamed;
    std::map<std::string, int> mLastMaterialOfLibrary;  // -1: none (or no such library)
    size_t mCurrentObject = kNoObject;
    size_t mCurrentMesh = kNoMesh;
    int mCurrentMaterial = -1;
    std::string mCurrentGroup;
};

// Numbers the distinct vertices of one mesh in order of first use. A vertex
// is its position and, when the mesh has them, its normal and texture
// coordinate (zero for corners without); -0 and 0 are one coordinate.
class VertexNumbering {
public:
    VertexNumbering(size_t width, size_t corners) : mWidth(width)
    {
        size_t capacity = 16;
        while (capacity < 2 * corners)
            capacity *= 2;
        mSlots.assign(capacity, kNone);
        mKeys.reserve(corners * width);
    }

    // The number of the vertex whose attributes are `key` (mWidth floats).
    uint32_t number(const float* key)
    {
        uint64_t hash = 1469598103934665603ull;
        uint32_t bits[9];
        for (size_t i = 0; i < mWidth; ++i) {
            const float value = key[i] + 0.0f;
            std::memcpy(&bits[i], &value, sizeof value);
            hash = (hash ^ bits[i]) * 1099511628211ull;
        }
        hash ^= hash >> 29;
        for (size_t slot = size_t(hash) & (mSlots.size() - 1);; slot = (slot + 1) & (mSlots.size() - 1)) {
            if (mSlots[slot] == kNone) {
                mSlots[slot] = uint32_t(mKeys.size() / mWidth);
                mKeys.insert(mKeys.end(), bits, bits + mWidth);
                return mSlots[slot];
            }
            if (std::memcmp(&mKeys[size_t(mSlots[slot]) * mWidth], bits, mWidth * sizeof(uint32_t)) == 0)
                return mSlots[slot];
        }
    }

private:
    size_t mWidth;
    std::vector<uint32_t> mSlots;
    std::vector<uint32_t> mKeys;
};

SourceMesh ObjContent::sourceMesh(const ObjMesh& mesh) const
{
    const size_t width = 3 + (mesh.hasNormals ? 3 : 0) + (mesh.hasUvs ? 3 : 0);
    auto check = [&](uint32_t index, const std::vector<float>& items, const char* what) {
        if (index != kNone && size_t(index) >= items.size() / 3)
            throw InputError(mFile + ": cannot read: a face refers to " + what + " " + std::to_string(size_t(index) + 1) +
                             " of " + std::to_string(items.size() / 3));
    };
    SourceMesh out;
    out.colour = colourOf(mesh.material);
    VertexNumbering numbering(width, mesh.corners.size());
    std::vector<uint32_t> numbers;
    numbers.reserve(mesh.corners.size());
    for (const Corner& corner : mesh.corners) {
        check(corner.position, mPositions, "the vertex");
        check(corner.uv, mUvs, "the texture coordinate");
        check(corner.normal, mNormals, "the normal");
        float key[9] = {};
        std::copy_n(&mPositions[size_t(corner.position) * 3], 3, key);
        float* extra = key + 3;
        for (const auto& [used, items, index] :
             {std::tuple(mesh.hasNormals, &mNormals, corner.normal), std::tuple(mesh.hasUvs, &mUvs, corner.uv)}) {
            if (!used)
                continue;
            if (index != kNone)
                std::copy_n(&(*items)[size_t(index) * 3], 3, extra);
            extra += 3;
        }
        const uint32_t number = numbering.number(key);
        if (number == out.positions.size())
            out.positions.emplace_back(key[0], key[1], key[2]);
        numbers.push_back(number);
    }
    size_t first = 0;
    for (uint32_t size : mesh.faceSizes) {
        const uint32_t start = size == 4 ? quadSplitCorner(&mesh.corners[first]) : 0;
        for (uint32_t k = 1; k + 1 < size; ++k) {
            out.indices.insert(out.indices.end(), {numbers[first + start], numbers[first + (start + k) % size],
                                                   numbers[first + (start + k + 1) % size]});
        }
        first += size;
    }
    return out;
}

}  // namespace

SourceFile parseObj(const std::string& bytes, const std::string& file, const MaterialLibraries& libraries)
{
    if (bytes.find('\0') != std::string::npos)
        throw InputError(file + ": cannot read: a zero byte in a text file");
    ObjContent content(file, libraries);
    content.parse(bytes);
    return content.toSourceFile();
}

SourceFile readObj(const std::string& file)
{
    const std::filesystem::path folder = std::filesystem::path(file).parent_path();
    return parseObj(readWholeFile(file, file), file, [&](const std::string& name, std::string& where) {
        const std::filesystem::path path = folder / name;
        std::error_code ec;
        if (name.empty() || !std::filesystem::is_regular_file(path, ec))
            return std::optional<std::string>();
        where = path.string();
        return std::optional<std::string>(readWholeFile(path, where));
    });
}

}  // namespace velmora
