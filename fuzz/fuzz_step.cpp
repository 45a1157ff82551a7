// Fuzzes the STEP reader as the importer runs it: in a child process, whose
// result is sent back and decoded here. OpenCASCADE's own parser crashes on
// some damaged files before any code of ours can look at them (an oriented
// edge that is its own edge recurses for ever in the parser's consistency
// check), so only the child process survives those: such a crash is the
// contained outcome, "the importer failed". A sanitizer report whose fault
// lies in our code (the checks of the file, the walk of its tree, the welding
// of the tessellation, the encoding) is a finding: the report is read back and
// this process aborts with it. Coverage is only counted in this process, so an
// input the child survived is read once more here, which is then safe: the
// fuzzer learns from everything but the crashes.
#include <sanitizer/common_interface_defs.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "SourceFile.h"
#include "StepReader.h"
#include "velmora/Assembly.h"
#include "velmora/ChildProcess.h"

namespace {

namespace fs = std::filesystem;

// Under half the fuzzer's own time limit, so that a hang is contained as
// well and an input read twice stays within it.
constexpr std::chrono::seconds kReadLimit{4};

// This process's input file and the sanitizer reports of its children,
// removed when the fuzzer exits.
class Files {
public:
    Files() : mDir(fs::temp_directory_path() / ("velmora-fuzz-step-" + std::to_string(::getpid())))
    {
        fs::create_directories(mDir);
    }
    ~Files() { fs::remove_all(mDir); }
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;

    std::string input(const uint8_t* data, size_t size) const
    {
        const std::string path = (mDir / "input.step").string();
        std::ofstream(path, std::ios::binary | std::ios::trunc)
            .write(reinterpret_cast<const char*>(data), std::streamsize(size));
        return path;
    }
    std::string reportPrefix() const { return (mDir / "report").string(); }

    // The text of the sanitizer reports the children left, which are removed.
    std::string takeReports() const
    {
        std::string text;
        for (const fs::directory_entry& entry : fs::directory_iterator(mDir)) {
            if (entry.path().filename().string().rfind("report", 0) != 0)
                continue;
            std::ifstream in(entry.path());
            text += std::string(std::istreambuf_iterator<char>(in), {});
            fs::remove(entry.path());
        }
        return text;
    }

private:
    fs::path mDir;
};

// In the child: a sanitizer report goes to a file, and neither it nor an
// abort makes the fuzzer's handlers save the input as a crash.
void containChild(const Files& files)
{
    __sanitizer_set_report_path(files.reportPrefix().c_str());
    __sanitizer_set_death_callback(nullptr);
    ::signal(SIGABRT, SIG_DFL);
    ::signal(SIGILL, SIG_DFL);
}

// True when the report's first frames are in our code.
bool faultIsOurs(const std::string& report)
{
    std::istringstream lines(report);
    int frames = 0;
    for (std::string line; std::getline(lines, line) && frames < 2;) {
        if (line.find("    #") != 0)
            continue;
        ++frames;
        if (line.find("velmora") != std::string::npos)
            return true;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const Files files;
    const std::string file = files.input(data, size);
    velmora::CadOptions options;
    options.threads = 1;
    try {
        velmora::decodeSourceFile(velmora::runInChildProcess(
            [&] {
                containChild(files);
                return velmora::encodeSourceFile(velmora::readCad(file, options));
            },
            kReadLimit));
    } catch (const velmora::InputError&) {
    } catch (const velmora::ChildProcessFailure&) {
        const std::string report = files.takeReports();
        if (faultIsOurs(report)) {
            std::cerr << report;
            std::abort();
        }
        return 0;
    }
    try {
        velmora::readCad(file, options);
    } catch (const velmora::InputError&) {
    }
    return 0;
}
