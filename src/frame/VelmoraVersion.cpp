#include "VelmoraVersion.h"

namespace Velmora {
namespace {

constexpr uint32_t kMajor = 1;
constexpr uint32_t kMinor = 0;
constexpr uint32_t kRelease = 0;
constexpr uint32_t kRevision = 17;
constexpr uint16_t kYear = 2022;
constexpr uint8_t kMonth = 7;

// Each text in its two stored variants, indexed by the bool argument.
constexpr const char* kMajorMinor[2] = {"1.0", "1.0"};
constexpr const char* kMajorMinorRelease[2] = {"1.0.0", "1.0.0"};
constexpr const char* kMajorMinorReleaseRevision[2] = {"1.0.0.17", "1.0.0.17"};
constexpr const char* kMajorMinorReleaseRevisionDate = "1.0.0.17 2022-7";

}  // namespace

uint32_t Version::GetMajor() { return kMajor; }
uint32_t Version::GetMinor() { return kMinor; }
uint32_t Version::GetRelease() { return kRelease; }
uint32_t Version::GetRevision() { return kRevision; }
uint16_t Version::GetYear() { return kYear; }
uint8_t Version::GetMonth() { return kMonth; }
const char* Version::GetDescStringMajorMinor(bool alternate) { return kMajorMinor[alternate ? 1 : 0]; }
const char* Version::GetDescStringMajorMinorRelease(bool alternate) { return kMajorMinorRelease[alternate ? 1 : 0]; }
const char* Version::GetDescStringMajorMinorReleaseRevision(bool alternate)
{
    return kMajorMinorReleaseRevision[alternate ? 1 : 0];
}
const char* Version::GetDescStringMajorMinorReleaseRevisionDate() { return kMajorMinorReleaseRevisionDate; }

}  // namespace Velmora
