#include "kx2SATState.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

namespace
{
std::vector<unsigned> trueVarsOf(const kx2SATState& set)
{
    std::vector<unsigned> ids;
    set.forEachTrueVar([&](unsigned id) { ids.push_back(id); });
    return ids;
}
} // namespace

TEST(kx2SATState, DeBruijnTableLocatesEverySingleBit)
{
    for (unsigned i = 0; i < 64; ++i)
    {
        const uint64_t bit = uint64_t(1) << i;
        EXPECT_EQ(kx2SATState::msDeBruijn64[(bit * kx2SATState::msDeBruijnSequence64) >> 58], i);
        EXPECT_EQ(kx2SATState::lowestBitPosition(bit | (bit << 1)), i);
    }
}

TEST(kx2SATState, LastChunkMaskKeepsOnlyValidBits)
{
    kx2SATState set64(64);
    EXPECT_EQ(set64.getNoDataChunks(), 1u);
    set64.clear(true);
    EXPECT_EQ(set64.getData()[0], ~uint64_t(0));
    EXPECT_EQ(set64.getNoTrueVars(), 64u);

    kx2SATState set65(65);
    EXPECT_EQ(set65.getNoDataChunks(), 2u);
    set65.clear(true);
    EXPECT_EQ(set65.getData()[1], uint64_t(1));
    EXPECT_EQ(set65.getNoTrueVars(), 65u);
    set65.clear(false);
    EXPECT_EQ(set65.getNoTrueVars(), 0u);

    kx2SATState set3(3);
    set3.clear(true);
    EXPECT_EQ(set3.getData()[0], uint64_t(7));
}

TEST(kx2SATState, SetClearAndRank)
{
    kx2SATState set(130);
    EXPECT_EQ(set.getNoTrueVarsPriorToVarId(0), 0u);
    for (const unsigned id : {0u, 5u, 63u, 64u, 100u, 129u})
        set.setTrue(id);
    EXPECT_EQ(set.getNoTrueVars(), 6u);
    EXPECT_EQ(set.getVar(63), 1u);
    EXPECT_EQ(set.getVar(62), 0u);
    EXPECT_EQ(set.getNoTrueVarsPriorToVarId(0), 0u);
    EXPECT_EQ(set.getNoTrueVarsPriorToVarId(1), 1u);
    EXPECT_EQ(set.getNoTrueVarsPriorToVarId(64), 3u); // exactly the first chunk
    EXPECT_EQ(set.getNoTrueVarsPriorToVarId(65), 4u);
    EXPECT_EQ(set.getNoTrueVarsPriorToVarId(129), 5u);
    EXPECT_EQ(set.getNoTrueVarsPriorToVarId(130), set.getNoTrueVars());
    set.setFalse(64);
    EXPECT_EQ(set.getVar(64), 0u);
    EXPECT_EQ(set.getNoTrueVarsPriorToVarId(100), 3u);
}

TEST(kx2SATState, WalkYieldsTrueVarsInAscendingOrder)
{
    kx2SATState set(128);
    for (const unsigned id : {127u, 64u, 0u, 63u})
        set.setTrue(id);
    EXPECT_EQ(trueVarsOf(set), (std::vector<unsigned>{0, 63, 64, 127}));

    std::mt19937 rng(7);
    kx2SATState randomSet(300);
    std::vector<unsigned> expected;
    for (unsigned id = 0; id < 300; ++id)
    {
        if (rng() % 3 == 0)
        {
            randomSet.setTrue(id);
            expected.push_back(id);
        }
    }
    EXPECT_EQ(trueVarsOf(randomSet), expected);
    EXPECT_EQ(randomSet.getNoTrueVars(), expected.size());
    for (unsigned k = 0; k < expected.size(); ++k)
        EXPECT_EQ(randomSet.getNoTrueVarsPriorToVarId(expected[k]), k);
}

TEST(kx2SATState, PopulationCountMatchesBitByBitCount)
{
    std::mt19937_64 rng(11);
    for (unsigned trial = 0; trial < 1000; ++trial)
    {
        const uint64_t x = rng() & rng();
        unsigned expected = 0;
        for (unsigned b = 0; b < 64; ++b)
            expected += unsigned((x >> b) & 1);
        EXPECT_EQ(kx2SATState::populationCount(x), expected);
    }
    EXPECT_EQ(kx2SATState::populationCount(~uint64_t(0)), 64u);
}

TEST(kx2SATState, AssignmentAndCloneCopyContentsIntoSeparateStorage)
{
    kx2SATState source(100);
    source.setTrue(3);
    source.setTrue(99);
    kx2SATState target(100);
    target.setTrue(50);
    target = source;
    EXPECT_EQ(trueVarsOf(target), (std::vector<unsigned>{3, 99}));
    EXPECT_NE(target.getData(), source.getData());
    source.setFalse(3);
    EXPECT_EQ(target.getVar(3), 1u);

    const auto copy = target.clone();
    EXPECT_EQ(copy->getNoVars(), 100u);
    EXPECT_EQ(trueVarsOf(*copy), (std::vector<unsigned>{3, 99}));
    target.clear(false);
    EXPECT_EQ(copy->getNoTrueVars(), 2u);

    kx2SATStateValue value(10);
    value->setTrue(4);
    kx2SATStateValue valueCopy = value;
    value->setFalse(4);
    EXPECT_EQ(valueCopy->getVar(4), 1u);
}

TEST(kx2SATState, ZeroVariablesIsAnEmptySet)
{
    kx2SATState empty(0);
    empty.clear(true);
    EXPECT_EQ(empty.getNoDataChunks(), 0u);
    EXPECT_EQ(empty.getNoTrueVars(), 0u);
    EXPECT_TRUE(trueVarsOf(empty).empty());
}
