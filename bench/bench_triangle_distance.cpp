// Cost of one Wm4::DistTriangle3Triangle3<float> query, the inner step of
// contact detection: random pairs (mostly apart, often settled by a corner
// above a face) and near-touching pairs (almost coplanar triangles a hair
// apart, the case contact detection spends its time on). One iteration is one
// pair; the pairs are made beforehand with a fixed seed.
#include <Wm4.h>

#include <benchmark/benchmark.h>

#include <array>
#include <random>
#include <vector>

namespace {

using Wm4::Vector3;
using Triangle = std::array<Vector3<float>, 3>;

constexpr int kPairCount = 4096;  // a power of two, so the index wraps with a mask

class PairMaker {
public:
    explicit PairMaker(unsigned seed) : m_rng(seed) {}

    Vector3<float> Point(float extent)
    {
        std::uniform_real_distribution<float> coordinate(-extent, extent);
        return {coordinate(m_rng), coordinate(m_rng), coordinate(m_rng)};
    }
    Triangle RandomTriangle(const Vector3<float>& centre)
    {
        return {centre + Point(1), centre + Point(1), centre + Point(1)};
    }

private:
    std::mt19937 m_rng;
};

std::vector<std::array<Triangle, 2>> RandomPairs()
{
    PairMaker maker(1);
    std::vector<std::array<Triangle, 2>> pairs(kPairCount);
    for (auto& pair : pairs)
        pair = {maker.RandomTriangle({}), maker.RandomTriangle(maker.Point(1.5f))};
    return pairs;
}

// The second triangle is the first slid within its plane by up to 0.3, lifted
// by up to ±1e-3 and with its corners moved by up to 1e-3: two faces of parts in
// contact, which may touch, cross or stay a hair apart.
std::vector<std::array<Triangle, 2>> NearTouchingPairs()
{
    PairMaker maker(2);
    std::vector<std::array<Triangle, 2>> pairs(kPairCount);
    for (auto& pair : pairs) {
        pair[0] = maker.RandomTriangle({});
        const Vector3<float> normal = (pair[0][1] - pair[0][0]).UnitCross(pair[0][2] - pair[0][0]);
        const Vector3<float> slide = maker.Point(0.3f);
        const Vector3<float> shift = slide - normal * (normal.Dot(slide) + maker.Point(1e-3f).X());
        for (int i = 0; i < 3; ++i)
            pair[1][i] = pair[0][(i + 1) % 3] + shift + maker.Point(1e-3f);
    }
    return pairs;
}

void RunQueries(benchmark::State& state, const std::vector<std::array<Triangle, 2>>& pairs)
{
    unsigned index = 0;
    for (auto _ : state) {
        const std::array<Triangle, 2>& pair = pairs[index++ & (kPairCount - 1)];
        const Wm4::DistTriangle3Triangle3<float> query(pair[0].data(), pair[1].data());
        benchmark::DoNotOptimize(query.Get());
        benchmark::DoNotOptimize(query.GetTriangleBary0(0));
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_RandomPairs(benchmark::State& state)
{
    static const std::vector<std::array<Triangle, 2>> pairs = RandomPairs();
    RunQueries(state, pairs);
}
BENCHMARK(BM_RandomPairs);

void BM_NearTouchingPairs(benchmark::State& state)
{
    static const std::vector<std::array<Triangle, 2>> pairs = NearTouchingPairs();
    RunQueries(state, pairs);
}
BENCHMARK(BM_NearTouchingPairs);

}  // namespace

BENCHMARK_MAIN();
