// Motion analysis per contact at the contact diagram's sample level (300,
// 906,015 directions): computeRemovalDirection against a plain per-sample scan
// of getSingleDisassemblyDirectionScore, on hand-checked contacts sampled about
// as densely as the contact-point producer samples (10,000 per side), and the
// generation of the sample set itself; the circle fit of the contact point.
#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

#include "../tests/motion/MotionContacts.h"

namespace {

using namespace motion_test;

struct tBenchCase {
    const char* name;
    std::function<tContactSamples()> make;
};

const tBenchCase kCases[] = {
    {"lid_on_box", [] { return lidOnBox(100); }},
    {"cap_on_box", [] { return capOnBox(70); }},
    {"square_peg", [] { return squarePegInHole(35); }},
    {"round_pin", [] { return roundPinInHole(25); }},
    {"block_in_corner", [] { return blockInCorner(58); }},
};

// A detector with the level-300 samples, loaded with one contact.
struct tLoadedContact {
    tContactBuffers buffers;
    kxMotionDetect detector;

    explicit tLoadedContact(const tBenchCase& c) : buffers(c.make())
    {
        detector.copyDirectionSamples(level300Samples());
        buffers.load(detector);
    }
};

void BM_GenerateDirections300(benchmark::State& state)
{
    std::vector<Vec3d> samples;
    for (auto _ : state) {
        kxMotionDetect::GenerateDirections(300, samples);
        benchmark::DoNotOptimize(samples.data());
    }
    state.counters["samples"] = double(samples.size());
}

// The whole removal-direction computation of one contact.
void BM_ComputeRemovalDirection(benchmark::State& state, const tBenchCase& c)
{
    tLoadedContact contact(c);
    const unsigned fast = contact.detector.getBestDisassemblySampleIndex();
    const unsigned plain = plainBestDisassemblySample(contact.detector);
    if (fast != plain) {
        state.SkipWithError(("scan picks sample " + std::to_string(fast) + ", plain scan " + std::to_string(plain)).c_str());
        return;
    }
    Vec3d out[3];
    bool both[3];
    unsigned count = 0;
    for (auto _ : state) {
        count = contact.detector.computeRemovalDirection(out, both);
        benchmark::DoNotOptimize(out);
    }
    state.counters["directions"] = double(count);
    state.counters["first_sample"] = double(fast);
    state.counters["contact_pairs"] = double(contact.buffers.first->GetVertexQuantity() / 2 +
                                             contact.buffers.second->GetVertexQuantity() / 2);
}

// The scan for the first direction alone.
void BM_FirstDirectionScan(benchmark::State& state, const tBenchCase& c)
{
    tLoadedContact contact(c);
    for (auto _ : state)
        benchmark::DoNotOptimize(contact.detector.getBestDisassemblySampleIndex());
}

// The reference: getSingleDisassemblyDirectionScore for every sample in index
// order, keeping the first strictly lowest.
void BM_PlainFirstDirectionScan(benchmark::State& state, const tBenchCase& c)
{
    tLoadedContact contact(c);
    for (auto _ : state)
        benchmark::DoNotOptimize(plainBestDisassemblySample(contact.detector));
}

// The circle fit of the reported contact point, seen across the contact
// (along z: a filled outline) and along it (along x: points near a line, the
// case where few points can be dropped before the hull).
void BM_CircleBasedCentroid(benchmark::State& state, const tBenchCase& c, Vec3f direction)
{
    const tContactBuffers buffers(c.make());
    const std::vector<kx::kxVertexBuffer*> pointers = buffers.pointers();
    float quality = 0.0f;
    for (auto _ : state)
        benchmark::DoNotOptimize(kxMotionDetect::ComputeCircleBasedCentroid(direction, pointers, quality));
}

const bool kRegistered = [] {
    benchmark::RegisterBenchmark("GenerateDirections/300", BM_GenerateDirections300)->Unit(benchmark::kMillisecond);
    for (const tBenchCase& c : kCases) {
        const std::string name(c.name);
        benchmark::RegisterBenchmark(("ComputeRemovalDirection/" + name).c_str(), BM_ComputeRemovalDirection, c)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("FirstDirectionScan/" + name).c_str(), BM_FirstDirectionScan, c)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("PlainFirstDirectionScan/" + name).c_str(), BM_PlainFirstDirectionScan, c)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("CircleBasedCentroid/across/" + name).c_str(), BM_CircleBasedCentroid, c,
                                     Vec3f(0, 0, 1))
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("CircleBasedCentroid/along/" + name).c_str(), BM_CircleBasedCentroid, c,
                                     Vec3f(1, 0, 0))
            ->Unit(benchmark::kMillisecond);
    }
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
