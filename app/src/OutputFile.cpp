#include "velmora/OutputFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iostream>

#include "velmora/Assembly.h"

namespace velmora {

OutputFile::OutputFile(const std::string& path, std::ostream& stdoutStream)
    : mPath(path), mStdout(stdoutStream), mToStdout(path == "-")
{
    if (mToStdout)
        return;
    mTemporary = path + ".partial-" + std::to_string(::getpid());
    mFile.open(mTemporary, std::ios::binary | std::ios::trunc);
    if (!mFile)
        throw InputError(path + ": cannot create the output file");
}

OutputFile::~OutputFile()
{
    if (!mToStdout && !mCommitted) {
        mFile.close();
        std::error_code ec;
        std::filesystem::remove(mTemporary, ec);
    }
}

void OutputFile::commit()
{
    if (mToStdout) {
        mStdout.flush();
        return;
    }
    mFile.close();
    std::error_code ec;
    if (!mFile || (std::filesystem::rename(mTemporary, mPath, ec), ec))
        throw InputError(mPath + ": cannot write the output file");
    mCommitted = true;
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
