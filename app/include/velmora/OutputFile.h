// Writing a report either to standard output ("-") or to a file that appears
// only when it is complete: text goes to a temporary file beside the target,
// which is renamed over the target on commit() and removed otherwise.
#pragma once

#include <fstream>
#include <ostream>
#include <string>

namespace velmora {

class OutputFile {
public:
    // `path` "-" writes to `stdoutStream`. Throws InputError when the file
    // cannot be created.
    OutputFile(const std::string& path, std::ostream& stdoutStream);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::ostream& stream() { return mToStdout ? mStdout : mFile; }
    // Makes the output visible under its name; throws InputError on failure.
    void commit();

private:
    std::string mPath;
    std::string mTemporary;
    std::ostream& mStdout;
    std::ofstream mFile;
    bool mToStdout;
    bool mCommitted = false;
};

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
