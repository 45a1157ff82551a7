#include "velmora/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>

#include "TemporaryFiles.h"
#include "velmora/Assembly.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;

constexpr const char* kTemporaryMarker = ".velmora-tmp-";
constexpr size_t kLongestNameKept = 200;  // room for the marker within NAME_MAX

bool statFile(const std::string& path, struct stat& info) { return ::stat(path.c_str(), &info) == 0; }

// Device files and the process's own streams are written where they are.
bool isSystemPath(const std::string& path) { return path.rfind("/dev/", 0) == 0 || path.rfind("/proc/", 0) == 0; }

// The file a rename must replace: a symbolic link's target, so the link stays.
fs::path replacedFile(const std::string& path)
{
    std::error_code ec;
    if (fs::is_symlink(path, ec)) {
        const fs::path resolved = fs::canonical(path, ec);
        if (!ec)
            return resolved;
    }
    return path;
}

mode_t newFileMode()
{
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

}  // namespace

bool OutputFile::isTemporaryName(const std::string& fileName)
{
    return fileName.size() > 1 && fileName[0] == '.' && fileName.find(kTemporaryMarker) != std::string::npos;
}

OutputFile::OutputFile(const std::string& path, std::ostream& stdoutStream)
    : mPath(path), mStdout(stdoutStream), mToStdout(path == "-")
{
    if (mToStdout)
        return;
    if (path.empty())
        throw UsageError("an output file name is empty");
    struct stat info {};
    const bool exists = statFile(path, info);
    if (exists && S_ISDIR(info.st_mode))
        throw InputError(path + ": is a directory");
    if ((exists && !S_ISREG(info.st_mode)) || isSystemPath(path)) {
        mFile.open(path, std::ios::binary | std::ios::out);
        if (!mFile)
            throw InputError(path + ": cannot open the output for writing: " + std::strerror(errno));
        return;
    }
    if (exists && ::access(path.c_str(), W_OK) != 0)
        throw InputError(path + ": the file is not writable");
    const fs::path target = replacedFile(path);
    const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
    std::error_code ec;
    if (!fs::is_directory(folder, ec))
        throw InputError(path + ": the folder '" + folder.string() + "' does not exist");
    std::string name = target.filename().string().substr(0, kLongestNameKept);
    name.insert(0, 1, '.');
    name.append(kTemporaryMarker).append("XXXXXX");
    std::string pattern = (folder / name).string();
    const int fd = createRegisteredTemporaryFile(pattern, mSlot);
    if (fd < 0)
        throw InputError(path + ": cannot write in the folder '" + folder.string() + "': " + std::strerror(errno));
    ::fchmod(fd, exists ? (info.st_mode & 07777) : newFileMode());
    ::close(fd);
    mTarget = target.string();
    mTemporary = pattern;
    mFile.open(mTemporary, std::ios::binary | std::ios::trunc);
    if (!mFile) {
        ::unlink(mTemporary.c_str());
        unregisterTemporaryFile(mSlot);
        throw InputError(path + ": cannot create the output file");
    }
}

OutputFile::~OutputFile()
{
    if (mTemporary.empty())
        return;
    if (!mCommitted) {
        mFile.close();
        ::unlink(mTemporary.c_str());
    }
    unregisterTemporaryFile(mSlot);
}

void OutputFile::commit()
{
    if (mToStdout) {
        mStdout.flush();
        return;
    }
    mFile.close();
    if (!mFile)
        throw InputError(mPath + ": cannot write the output file");
    if (mTemporary.empty())
        return;
    if (::rename(mTemporary.c_str(), mTarget.c_str()) != 0)
        throw InputError(mPath + ": cannot write the output file: " + std::strerror(errno));
    mCommitted = true;
}

void checkOutputsAgainstInputs(const std::vector<std::string>& outputs, const std::vector<std::string>& inputFiles)
{
    auto sameFile = [](const struct stat& a, const struct stat& b) {
        return S_ISREG(a.st_mode) && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
    };
    std::vector<struct stat> seen;
    std::vector<fs::path> named;
    if (std::count(outputs.begin(), outputs.end(), "-") > 1)
        throw UsageError("standard output is given for two outputs");
    for (const std::string& output : outputs) {
        if (output.empty() || output == "-")
            continue;
        std::error_code ec;
        const fs::path resolved = fs::weakly_canonical(output, ec);
        if (std::find(named.begin(), named.end(), resolved) != named.end())
            throw UsageError(output + ": the same file is given for two outputs");
        named.push_back(resolved);
        struct stat target {};
        if (!statFile(output, target))
            continue;
        for (const std::string& input : inputFiles) {
            struct stat source {};
            if (statFile(input, source) && sameFile(target, source))
                throw UsageError(output + ": the output is the input file '" + input + "'");
        }
        for (const struct stat& other : seen) {
            if (sameFile(target, other))
                throw UsageError(output + ": the same file is given for two outputs");
        }
        seen.push_back(target);
    }
}

LibraryOutput::LibraryOutput(bool show)
{
    std::cout.flush();
    std::fflush(stdout);
    mSavedStdout = ::dup(STDOUT_FILENO);
    if (show) {
        ::dup2(STDERR_FILENO, STDOUT_FILENO);
        return;
    }
    const int sink = ::open("/dev/null", O_WRONLY);
    if (sink >= 0) {
        ::dup2(sink, STDOUT_FILENO);
        ::close(sink);
    }
}

LibraryOutput::~LibraryOutput()
{
    std::cout.flush();
    std::fflush(stdout);
    if (mSavedStdout >= 0) {
        ::dup2(mSavedStdout, STDOUT_FILENO);
        ::close(mSavedStdout);
    }
}

}  // namespace velmora
