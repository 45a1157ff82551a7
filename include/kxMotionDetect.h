// kxMotionDetect: motion analysis of one contact between two sides of an
// assembly. It reads the paired contact samples of the contact (vertex buffers
// it does not own), condenses them once into small moment systems
// (centerSystems), and then scores any translation direction or rotation axis
// in constant time from those moments. Its main result is
// computeRemovalDirection: up to three perpendicular directions in which the
// first side can be pulled away from the second, ranked, each with whether the
// opposite sense is free too.
//
// Contact sample buffers: vertices in pairs 2k, 2k+1 (a sample on one side, its
// partner on the other) with positions (Position3), a per-point vector
// (Normal3, read by the rotation systems), the unit face normal in texture set 0
// (TCoord3) and a weight (PSize1). Buffers alternate in orientation: in buffer
// number b (push order) the sense of a vertex i is flipped when i XOR b is odd,
// so that every aligned face normal points out of the first side into the
// second. A direction d is free when it does not push the first side into the
// second: its score Σ w·(n·d)²·(1 + n·d)² is zero for motion tangent to a face
// or along −n.
//
// Life cycle per contact: clearSystems, pushContactPoints for each buffer,
// centerSystems, then any number of queries. The direction sample set
// (generateDirectionSamples or copyDirectionSamples) survives every transition
// and must be present before computeRemovalDirection or getBestRotationParameters.
// Nothing is guarded: centring with no points leaves non-finite systems.
//
// The detector is used by one thread at a time; the buffers are only read.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Wm4.h"
#include "kxSceneGraph.h"
#include "kxSymMatrix3.h"

class kxMotionDetect {
public:
    // Least-squares rotation system: for an axis direction ω and an axis point x
    // (points r and x relative to the centroid, in units of the radius R) the
    // residual Σ w·(n·(ω × (r − x)))² / W of a turn about that line is
    // e − 2·x·b + xᵀ·A·x with A = Σ q_k(ω)·S_k, q = (ωx², ωy², ωz², ωx·ωy,
    // ωx·ωz, ωy·ωz), b = Σ_k ω_k·M_k·ω and e = ωᵀ·K·ω, once centerSystems has
    // scaled the sums (see pushPointToSingleRotationSystem).
    struct tSingleRotAxisSystem {
        kxSymMatrix3 mAxisTensors[6];             // S0…S5: a_k·a_kᵀ and the twin products of the a_k
        Wm4::Matrix3<double> mMixedMatrices[3];   // M1…M3: a_k·cᵀ
        kxSymMatrix3 mMomentTensor;               // K: c·cᵀ
        Wm4::Vector3<double> mBestAxes[3];        // cached best rotation axes
        Wm4::Vector3<double> mBestPoints[3];      // cached points of those axes
        unsigned mBestRotationCount;              // cached number of valid axes
        bool mBestRotationCached;

        // Zeroes every tensor, matrix, cached vector and counter, clears the flag.
        void clear();
        // Scales by the weight sum W and radius R: S·1/W, M·1/(W·R), K·1/(W·R²);
        // resets the cached count and flag.
        void normalise(double weightSum, double radius);
    };

    // Returned by getBestDisassemblySampleIndex when no sample scores below +∞.
    static constexpr unsigned NO_SAMPLE = 0xFFFFFFFFu;

    // Both vectors empty, every system zeroed as after clearSystems, sampling
    // tolerances at their defaults (10, 10000, 0.1, 0.01).
    kxMotionDetect();

    // ---- Direction sampling and the shared tolerance rule ----------------------

    // m[r][c] += w·a[r]·b[c] for all nine entries.
    static void PushTensorProduct(Wm4::Matrix3<double>& m, const Wm4::Vector3<double>& a,
                                  const Wm4::Vector3<double>& b, double w);
    // The geodesic sample set of subdivision level n: 15 + 30·n + 20·(n·(n−1)/2)
    // unit vectors (906,015 for n = 300): the three positive axes, the twelve
    // icosahedron vertices, then face by face the points of the edges the face
    // owns and its interior grid points. The grid step is 1/(n+1) rounded to
    // single precision. Sample indices are this order.
    static void GenerateDirections(unsigned n, std::vector<Wm4::Vector3<double>>& out);
    void generateDirectionSamples(unsigned n);
    // Replaces this sample set by other's (no regeneration). A sample set never
    // changes once built, so detectors share one copy of it: a detector per
    // thread costs no extra sample memory.
    void copyDirectionSamples(const kxMotionDetect& other);
    const std::vector<Wm4::Vector3<double>>& getDirectionSamples() const { return mSamples->directions; }
    // The number of violating contact samples (out of sampleCount) at which a
    // motion stops being valid; a motion is valid while violations are strictly
    // fewer. At least 1, so a motion without violations is always valid.
    unsigned getValidSampleBound(unsigned sampleCount) const;

    // ---- Life cycle --------------------------------------------------------

    // Appends a borrowed buffer; nothing is computed.
    void pushContactPoints(const kx::kxVertexBuffer* buffer);
    // Forgets the buffers (keeping capacity) and zeroes every system; radius 1.
    void clearSystems();
    // Builds the centroid, radius, translation, unmount-axis and rotation
    // systems from the pushed buffers and clears the cached results. It adds
    // onto the systems clearSystems zeroed: call it once per clearSystems.
    void centerSystems();

    const Wm4::Vector3<double>& getCentroid() const { return mCentroid; }
    double getRadius() const { return mRadius; }
    double getWeightSum() const { return mWeightSum; }
    uint64_t getNoPoints() const { return mPointCount; }
    const tSingleRotAxisSystem& getNormalRotSystem() const { return mNormalRotSystem; }
    const tSingleRotAxisSystem& getContactRotSystem() const { return mContactRotSystem; }

    // ---- Translation freedom -------------------------------------------------

    // Translation system += (w·n·nᵀ, w·n, w); the position is not used.
    void pushPointToSingleTranslationSystem(const Wm4::Vector3<double>& position, const Wm4::Vector3<double>& normal,
                                            double w);
    // Unmount-axis moments: N += w·n·nᵀ, and with a = (nx², ny², nz², (nx+ny)²,
    // (nx+nz)², (ny+nz)²): T_k += (w·a_k)·n·nᵀ, U_k += (w·a_k)·n.
    void pushPointToSingleUnmountAxisSystem(const Wm4::Vector3<double>& normal, double w);
    // dᵀ·T·d / W: the weighted mean squared normal component of d.
    double getSingleTranslationScore(const Wm4::Vector3<double>& d) const;
    // Σ w·(n·d)²·(1 + n·d)² over all points, in constant time from the
    // unmount-axis moments: dᵀ·N·d + 2·Σ_k q_k(d)·(U_k·d) + dᵀ·(Σ_k q_k(d)·T_k)·d.
    // Lower is freer.
    double getSingleDisassemblyDirectionScore(const Wm4::Vector3<double>& d) const;
    // Line test: d slides (in either sense) unless more pairs than tolerated
    // have both faces tilted more than ten degrees against d.
    bool validateTranslation(const Wm4::Vector3<double>& d) const;
    // Removal test in the sense of d; score = Σ w·min(1, 1 + m)² over pairs,
    // m the smaller of the two aligned normal components (lower is freer).
    bool validateTranslation(const Wm4::Vector3<double>& d, double& score) const;
    // Up to three sliding lines (eigenvectors of the normalised translation
    // tensor, ascending eigenvalue): line-test passes from slot 0 upwards,
    // failures from slot 2 downwards. Returns the number of passes. Cached
    // until the next centerSystems or clearSystems.
    unsigned getBestTranslationParameters(Wm4::Vector3<double> out[3]);
    // Index of the first direction sample of strictly lowest
    // getSingleDisassemblyDirectionScore, or NO_SAMPLE. The scan evaluates a
    // cheaper polynomial form of the score and re-scores the samples within
    // its rounding bound of the minimum with the plain form, so the index is
    // exactly the one a plain per-sample scan picks.
    unsigned getBestDisassemblySampleIndex() const;
    // The ranked removal directions (0 to 3): the freest sample, the freest
    // direction on the circle perpendicular to it and their cross product, each
    // in its lower-scoring sense, sorted by score. outBothSenses[i] tells
    // whether the opposite of out[i] is free as well.
    unsigned computeRemovalDirection(Wm4::Vector3<double> out[3], bool outBothSenses[3]);

    // ---- Rotation and unmount axes --------------------------------------------

    // With c = n × r and a_k = e_k × n: K += w·c·cᵀ; M_k += w·a_k·cᵀ (full);
    // S0..S2 += w·a_k·a_kᵀ; S3, S4, S5 += w·(a1·a2ᵀ + a2·a1ᵀ), (a1, a3), (a2, a3).
    void pushPointToSingleRotationSystem(const Wm4::Vector3<double>& r, const Wm4::Vector3<double>& n, double w,
                                         tSingleRotAxisSystem& sys);
    // Residual of the best rotation about a line of direction `axis` (unit);
    // writes that line's point (in the caller's frame) to axisPoint.
    double getSingleRotationScore(const Wm4::Vector3<double>& axis, Wm4::Vector3<double>& axisPoint,
                                  const tSingleRotAxisSystem& sys) const;
    // Up to three rotation axes with their points, valid ones first; returns
    // how many are valid. Only the first call after centerSystems computes:
    // later calls return the normal system's cached fields, which the
    // computation does not fill (callers call it once per centring).
    unsigned getBestRotationParameters(Wm4::Vector3<double> axes[3], Wm4::Vector3<double> points[3]);
    // The test angle (radians, at most ten degrees) for a rotation about the
    // axis through point: smaller for long thin contact regions and for axes
    // away from the region.
    double computeMaxAngleDeviation(const Wm4::Vector3<double>& axis, const Wm4::Vector3<double>& point) const;
    // Whether the rotation about the axis through point keeps every contact
    // point's Normal3 within maxAngle (radians) of perpendicular to its motion,
    // up to the tolerated number of violations.
    bool validateRotation(const Wm4::Vector3<double>& axis, const Wm4::Vector3<double>& point, double maxAngle) const;

    // A contact centre seen along `direction`: every vertex of every non-null
    // buffer is projected onto the plane perpendicular to the direction, the
    // convex hull of the projections is taken (monotone chain) and a circle is
    // fitted to the hull boundary by least squares; the result is the circle's
    // centre, at the mean depth of the vertices along the direction.
    //
    // The fit works in coordinates normalised to the projections' bounding
    // rectangle (centred, larger extent 1) and weights the hull boundary
    // uniformly by arc length (three Gauss–Legendre points per hull edge,
    // exact for the fit's moments). With boundary points q, fitted centre c and
    // radius ρ:
    //     quality = clamp(1 − RMS over the boundary of (|q − c|² − ρ²)/ρ², 0, 1)
    // which is 1 for a circle (0.998 for a 64-gon, 0.91 for a hexagon), 0.78
    // for a square, 0.55 for a 2:1 rectangle, 0.15 for a 10:1 rectangle and
    // tends to 1 − √0.8 ≈ 0.11 for ever thinner ones. Fewer than three hull
    // vertices (no area) give quality 0 and the centre of the bounding rectangle.
    static Wm4::Vector3<float> ComputeCircleBasedCentroid(const Wm4::Vector3<float>& direction,
                                                          std::vector<kx::kxVertexBuffer*> buffers, float& quality);

    // ---- Preview meshes (positions and normals, flat shaded) -------------------

    // Arrows from `point` along the removal directions of computeRemovalDirection,
    // each `length` long; a direction free in both senses gets a head at both
    // ends (the arrow then spans point ± length). Null when there is no direction.
    kx::kxPointer<kx::kxTriMesh> computeDisassemblyDirectionMesh(const Wm4::Vector3<float>& point, float length);
    // Double-headed arrows through `point` (spanning point ± length) along the
    // valid sliding lines of getBestTranslationParameters. Null when none is valid.
    kx::kxPointer<kx::kxTriMesh> computeTranslationMesh(const Wm4::Vector3<float>& point, float length);
    // A rod of `length` centred on `point` along `axis`, with a flat ring around
    // its middle that marks the turning.
    static kx::kxPointer<kx::kxTriMesh> ComputeAxisMesh(const Wm4::Vector3<double>& axis,
                                                        const Wm4::Vector3<double>& point, float length);

private:
    // A direction sample set with the same samples again as three coordinate
    // arrays, for the vectorised scan of getBestDisassemblySampleIndex.
    struct tDirectionSampleSet {
        std::vector<Wm4::Vector3<double>> directions;
        std::vector<double> scanX;
        std::vector<double> scanY;
        std::vector<double> scanZ;
    };
    // Builds the set of subdivision level n with its scan layout.
    static std::shared_ptr<const tDirectionSampleSet> BuildSampleSet(unsigned n);
    // The set of a detector that has none yet: empty.
    static std::shared_ptr<const tDirectionSampleSet> EmptySampleSet();

    // Read-only, shared between the detectors it was copied to; never null.
    std::shared_ptr<const tDirectionSampleSet> mSamples;
    std::vector<const kx::kxVertexBuffer*> mContactPointBuffers;
    Wm4::Vector3<double> mPositionSum;
    Wm4::Vector3<double> mCentroid;
    tSingleRotAxisSystem mNormalRotSystem;
    tSingleRotAxisSystem mContactRotSystem;
    kxSymMatrix3 mTranslationTensor;
    Wm4::Vector3<double> mTranslationNormalSum;
    double mTranslationWeight;
    Wm4::Vector3<double> mBestTranslations[3];
    unsigned mBestTranslationCount;
    bool mBestTranslationCached;
    kxSymMatrix3 mUnmountTensors[6];
    Wm4::Vector3<double> mUnmountVectors[6];
    kxSymMatrix3 mUnmountNormalTensor;
    uint64_t mPointCount;
    double mWeightSum;
    double mRadius;
    unsigned mMinSampleCount;
    unsigned mMaxSampleCount;
    double mMinSampleRatio;
    double mMaxSampleRatio;
};
