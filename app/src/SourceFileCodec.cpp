// SourceFile to bytes and back, for meshes read in a child process. The
// decoder checks every length against what is left, so a short or damaged
// answer is an error, never a read past the end.
#include <cstring>
#include <optional>

#include "SourceFile.h"
#include "velmora/Assembly.h"

namespace velmora {
namespace {

class Encoder {
public:
    template <typename T>
    void raw(const T* values, size_t n)
    {
        size(n);
        if (n > 0)
            mBytes.append(reinterpret_cast<const char*>(values), n * sizeof(T));
    }
    void size(uint64_t n) { mBytes.append(reinterpret_cast<const char*>(&n), sizeof n); }
    void text(const std::string& s) { raw(s.data(), s.size()); }
    std::string take() { return std::move(mBytes); }

private:
    std::string mBytes;
};

class Decoder {
public:
    explicit Decoder(const std::string& bytes) : mBytes(bytes) {}

    uint64_t size()
    {
        uint64_t n = 0;
        copy(&n, sizeof n);
        return n;
    }
    template <typename T>
    std::vector<T> raw()
    {
        const uint64_t n = size();
        if (n > (mBytes.size() - mPos) / sizeof(T))
            throw InputError("a damaged answer from the importer");
        std::vector<T> values(n);
        copy(values.data(), n * sizeof(T));
        return values;
    }
    std::string text()
    {
        const std::vector<char> chars = raw<char>();
        return {chars.begin(), chars.end()};
    }

private:
    void copy(void* to, size_t n)
    {
        if (n > mBytes.size() - mPos)
            throw InputError("a damaged answer from the importer");
        if (n == 0)
            return;  // `to` may be the null data() of an empty vector
        std::memcpy(to, mBytes.data() + mPos, n);
        mPos += n;
    }
    const std::string& mBytes;
    size_t mPos = 0;
};

// A colour as zero (none) or four floats.
void encodeColour(Encoder& out, const std::optional<Colour>& colour)
{
    const float rgba[4] = {colour ? colour->r : 0, colour ? colour->g : 0, colour ? colour->b : 0,
                           colour ? colour->a : 0};
    out.raw(rgba, colour ? 4 : 0);
}

std::optional<Colour> decodeColour(Decoder& in)
{
    const std::vector<float> rgba = in.raw<float>();
    if (rgba.empty())
        return std::nullopt;
    if (rgba.size() != 4)
        throw InputError("a damaged answer from the importer");
    return Colour{rgba[0], rgba[1], rgba[2], rgba[3]};
}

}  // namespace

std::string encodeSourceFile(const SourceFile& source)
{
    Encoder out;
    out.size(source.meshes.size());
    for (const SourceMesh& mesh : source.meshes) {
        out.raw(mesh.positions.data(), mesh.positions.size());
        out.raw(mesh.indices.data(), mesh.indices.size());
        encodeColour(out, mesh.colour);
    }
    out.size(source.instances.size());
    for (const SourceInstance& instance : source.instances) {
        out.text(instance.node);
        out.text(instance.nodePath);
        out.text(instance.mesh);
        const int64_t flags[2] = {instance.nodeHasOneMesh, instance.meshIndex};
        out.raw(flags, 2);
        out.raw(instance.world.GetMatrix().data(), 9);
        out.raw(instance.world.GetTranslate().data(), 3);
        encodeColour(out, instance.colour);
    }
    out.text(source.units);
    out.size(source.warnings.size());
    for (const std::string& warning : source.warnings)
        out.text(warning);
    return out.take();
}

SourceFile decodeSourceFile(const std::string& bytes)
{
    Decoder in(bytes);
    SourceFile source;
    for (uint64_t m = in.size(); m > 0; --m) {
        SourceMesh mesh;
        mesh.positions = in.raw<Wm4::Vector3<float>>();
        mesh.indices = in.raw<unsigned>();
        mesh.colour = decodeColour(in);
        source.meshes.push_back(std::move(mesh));
    }
    for (uint64_t k = in.size(); k > 0; --k) {
        SourceInstance instance;
        instance.node = in.text();
        instance.nodePath = in.text();
        instance.mesh = in.text();
        const std::vector<int64_t> flags = in.raw<int64_t>();
        const std::vector<float> matrix = in.raw<float>();
        const std::vector<float> translate = in.raw<float>();
        if (flags.size() != 2 || matrix.size() != 9 || translate.size() != 3 || flags[1] < 0 ||
            uint64_t(flags[1]) >= source.meshes.size())
            throw InputError("a damaged answer from the importer");
        instance.nodeHasOneMesh = flags[0] != 0;
        instance.meshIndex = int(flags[1]);
        const float* m = matrix.data();
        instance.world = {Wm4::Matrix3<float>(m[0], m[1], m[2], m[3], m[4], m[5], m[6], m[7], m[8]),
                          {translate[0], translate[1], translate[2]}};
        instance.colour = decodeColour(in);
        source.instances.push_back(std::move(instance));
    }
    source.units = in.text();
    for (uint64_t k = in.size(); k > 0; --k)
        source.warnings.push_back(in.text());
    return source;
}

}  // namespace velmora
