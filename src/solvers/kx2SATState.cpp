#include "kx2SATState.h"

#include <algorithm>

const uint64_t kx2SATState::msDeBruijnSequence64 = 0x022FDD63CC95386DULL;

const unsigned char kx2SATState::msDeBruijn64[64] = {
    0,  1,  2,  53, 3,  7,  54, 27, 4,  38, 41, 8,  34, 55, 48, 28,
    62, 5,  39, 46, 44, 42, 22, 9,  24, 35, 59, 56, 49, 18, 29, 11,
    63, 52, 6,  26, 37, 40, 33, 47, 61, 45, 43, 21, 23, 58, 17, 10,
    51, 25, 36, 32, 60, 20, 57, 16, 50, 31, 19, 15, 30, 14, 13, 12};

kx2SATState::kx2SATState(unsigned nVars)
    : mNoVars(nVars), mData(new uint64_t[(nVars + 63) / 64])
{
    std::fill(mData, mData + getNoDataChunks(), uint64_t(0));
    maskLastChunk();
}

kx2SATState::~kx2SATState()
{
    delete[] mData;
}

kx2SATState& kx2SATState::operator=(const kx2SATState& other)
{
    if (this != &other)
        std::copy(other.mData, other.mData + getNoDataChunks(), mData);
    return *this;
}

std::unique_ptr<kx2SATState> kx2SATState::clone() const
{
    auto copy = std::make_unique<kx2SATState>(mNoVars);
    *copy = *this;
    return copy;
}

void kx2SATState::clear(bool value)
{
    std::fill(mData, mData + getNoDataChunks(), value ? ~uint64_t(0) : uint64_t(0));
    maskLastChunk();
}

void kx2SATState::maskLastChunk()
{
    // A set of 0 variables has no chunk: it is simply empty.
    const unsigned noChunks = getNoDataChunks();
    if (noChunks == 0)
        return;
    mData[noChunks - 1] &= ~uint64_t(0) >> (63 - ((mNoVars - 1) % 64));
}

unsigned kx2SATState::populationCount(uint64_t x)
{
    x = x - ((x >> 1) & 0x5555555555555555ULL);
    x = (x & 0x3333333333333333ULL) + ((x >> 2) & 0x3333333333333333ULL);
    x = (x + (x >> 4)) & 0x0F0F0F0F0F0F0F0FULL;
    return unsigned((x * 0x0101010101010101ULL) >> 56);
}

unsigned kx2SATState::getNoTrueVars() const
{
    unsigned count = 0;
    const unsigned noChunks = getNoDataChunks();
    for (unsigned k = 0; k < noChunks; ++k)
        count += populationCount(mData[k]);
    return count;
}

unsigned kx2SATState::getNoTrueVarsPriorToVarId(unsigned id) const
{
    unsigned count = 0;
    const unsigned fullChunks = id / 64;
    for (unsigned k = 0; k < fullChunks; ++k)
        count += populationCount(mData[k]);
    const unsigned bitsInLast = id % 64;
    if (bitsInLast != 0)
        count += populationCount(mData[fullChunks] & ((uint64_t(1) << bitsInLast) - 1));
    return count;
}
