// Velmora::Version: which build of the library is loaded. Static operations
// only; the texts are static storage that stays valid for the life of the
// library and is never freed by the caller. The operations taking a bool
// choose between two stored texts that are equal in this build.
#pragma once

#include <cstdint>

namespace Velmora {

class Version {
public:
    static uint32_t GetMajor();
    static uint32_t GetMinor();
    static uint32_t GetRelease();
    static uint32_t GetRevision();
    static uint16_t GetYear();
    static uint8_t GetMonth();
    static const char* GetDescStringMajorMinor(bool alternate);
    static const char* GetDescStringMajorMinorRelease(bool alternate);
    static const char* GetDescStringMajorMinorReleaseRevision(bool alternate);
    // The release-and-revision text, a blank, the year, "-" and the month.
    static const char* GetDescStringMajorMinorReleaseRevisionDate();
};

}  // namespace Velmora
