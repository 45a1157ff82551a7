// kx2SATState: a fixed-size set of boolean variables (one per group of an
// assembly), stored as 64-bit chunks, least significant bit first.
//
// Invariants:
// - the number of variables never changes after construction;
// - bits at positions mNoVars and above in the last chunk are always 0
//   (constructor and clear establish it; setTrue/setFalse and direct chunk
//   writes through editData must keep it), so counts can work chunk-wise;
// - assignment copies contents only: both sets must have the same size.
//
// True variables are walked in ascending order with the De Bruijn bit scan:
//   rest = x & (x - 1); bit = rest ^ x;
//   position = msDeBruijn64[(bit * msDeBruijnSequence64) >> 58];
#pragma once

#include <cstdint>
#include <memory>

class kx2SATState
{
public:
    static const uint64_t msDeBruijnSequence64;
    static const unsigned char msDeBruijn64[64];

    // Builds a set of nVars variables, all false (0 variables: an empty set).
    explicit kx2SATState(unsigned nVars);
    ~kx2SATState();

    kx2SATState(const kx2SATState&) = delete;
    kx2SATState(kx2SATState&&) = delete;

    // Copies the chunks of other; other must have the same number of variables.
    kx2SATState& operator=(const kx2SATState& other);

    // A new set of the same size and content (sets have no copy constructor).
    std::unique_ptr<kx2SATState> clone() const;

    void clear(bool value);
    void setTrue(unsigned id) { mData[id >> 6] |= uint64_t(1) << (id & 63); }
    void setFalse(unsigned id) { mData[id >> 6] &= ~(uint64_t(1) << (id & 63)); }
    unsigned getVar(unsigned id) const { return unsigned(mData[id >> 6] >> (id & 63)) & 1u; }

    unsigned getNoTrueVars() const;
    // Number of true variables with an id strictly below id.
    unsigned getNoTrueVarsPriorToVarId(unsigned id) const;

    unsigned getNoVars() const { return mNoVars; }
    unsigned getNoDataChunks() const { return (mNoVars + 63) / 64; }
    const uint64_t* getData() const { return mData; }
    uint64_t* editData() { return mData; }

    // Position (0..63) of the lowest set bit of a non-zero chunk.
    static unsigned lowestBitPosition(uint64_t chunk)
    {
        const uint64_t rest = chunk & (chunk - 1);
        return msDeBruijn64[((rest ^ chunk) * msDeBruijnSequence64) >> 58];
    }

    // Calls visit(id) for every true variable, in ascending id order.
    template <typename Visitor>
    void forEachTrueVar(Visitor&& visit) const
    {
        const unsigned noChunks = getNoDataChunks();
        for (unsigned k = 0; k < noChunks; ++k)
        {
            for (uint64_t x = mData[k]; x != 0; x &= x - 1)
                visit(lowestBitPosition(x) + 64 * k);
        }
    }

    static unsigned populationCount(uint64_t x);

private:
    void maskLastChunk();

    unsigned mNoVars;
    uint64_t* mData;
};

// Owns one kx2SATState and gives it value semantics (a copy is a new set of
// the same size and content), so that classes holding sets can keep
// member-wise copy and move.
class kx2SATStateValue
{
public:
    explicit kx2SATStateValue(unsigned nVars) : mState(std::make_unique<kx2SATState>(nVars)) {}
    kx2SATStateValue(const kx2SATStateValue& other) : mState(other.mState->clone()) {}
    kx2SATStateValue(kx2SATStateValue&&) noexcept = default;
    kx2SATStateValue& operator=(const kx2SATStateValue& other)
    {
        if (this != &other)
            mState = other.mState->clone();
        return *this;
    }
    kx2SATStateValue& operator=(kx2SATStateValue&&) noexcept = default;

    kx2SATState& operator*() { return *mState; }
    const kx2SATState& operator*() const { return *mState; }
    kx2SATState* operator->() { return mState.get(); }
    const kx2SATState* operator->() const { return mState.get(); }

private:
    std::unique_ptr<kx2SATState> mState;
};
