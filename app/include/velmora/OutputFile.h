// Writing a report or a view either to standard output ("-") or to a file
// that appears only when it is complete.
//
// A regular target (new or existing) is written through a hidden temporary
// file beside it (".NAME.velmora-tmp-XXXXXX"), renamed over it on commit()
// and removed otherwise, also when the process is stopped by SIGINT or
// SIGTERM. A target that exists and is not a regular file (a FIFO, a device,
// /dev/stdout) is written in place and never replaced. A symbolic link is
// followed: the file it names is replaced, the link stays.
#pragma once

#include <fstream>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace velmora {

// A command line that cannot be run as given (a bad option value, an output
// that cannot be written): shown as it is, exit status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class OutputFile {
public:
    // `path` "-" writes to `stdoutStream`. Throws InputError when the target
    // is a directory, its folder does not exist or cannot be written, and
    // UsageError when `path` is empty.
    OutputFile(const std::string& path, std::ostream& stdoutStream);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::ostream& stream() { return mToStdout ? mStdout : mFile; }
    // Makes the output visible under its name; throws InputError on failure.
    void commit();

    // The marker in the names of temporary files: such files are never inputs.
    static bool isTemporaryName(const std::string& fileName);

private:
    std::string mPath;
    std::string mTarget;     // the file replaced on commit (links followed)
    std::string mTemporary;  // empty when writing in place
    int mSlot = -1;          // where the signal handlers find mTemporary
    std::ostream& mStdout;
    std::ofstream mFile;
    bool mToStdout;
    bool mCommitted = false;
};

// Throws UsageError when an output (other than "-") is one of the input files
// (same file after following links) or when two outputs are the same file.
void checkOutputsAgainstInputs(const std::vector<std::string>& outputs, const std::vector<std::string>& inputFiles);

// While alive, whatever the process writes to its standard output (fd 1)
// goes to standard error (`show`) or nowhere, so the library's own lines
// never mix into a report written to standard output.
class LibraryOutput {
public:
    explicit LibraryOutput(bool show);
    ~LibraryOutput();
    LibraryOutput(const LibraryOutput&) = delete;
    LibraryOutput& operator=(const LibraryOutput&) = delete;

private:
    int mSavedStdout;
};

}  // namespace velmora
