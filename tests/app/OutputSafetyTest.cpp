// What a run may do to the files around it: outputs that are not regular
// files are written in place, an output that is an input is refused before
// any work, an interrupted run leaves no temporary file, and our temporary
// files are never read as inputs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "CliRun.h"
#include "TempDirTest.h"

namespace fs = std::filesystem;

namespace {

using cli_test::CliRun;
using cli_test::run;

constexpr const char* kTetra = "o left\nv 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\nf 1 2 3\nf 1 2 4\nf 1 3 4\nf 2 3 4\n";

std::string readText(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// A 6 x 6 x 3 grid of touching unit cubes: 108 parts, seconds to plan.
std::string cubeGridObj()
{
    static const int tris[12][3] = {{0, 2, 3}, {0, 3, 1}, {4, 5, 7}, {4, 7, 6}, {0, 1, 5}, {0, 5, 4},
                                    {2, 6, 7}, {2, 7, 3}, {0, 4, 6}, {0, 6, 2}, {1, 3, 7}, {1, 7, 5}};
    std::ostringstream obj;
    int base = 1;
    for (int x = 0; x < 6; ++x)
        for (int y = 0; y < 6; ++y)
            for (int z = 0; z < 3; ++z) {
                obj << "o c" << x << y << z << "\n";
                for (int c = 0; c < 8; ++c)
                    obj << "v " << x + (c & 1) << " " << y + (c >> 1 & 1) << " " << z + (c >> 2) << "\n";
                for (const auto& t : tris)
                    obj << "f " << base + t[0] << " " << base + t[1] << " " << base + t[2] << "\n";
                base += 8;
            }
    return obj.str();
}

size_t temporaryFilesIn(const fs::path& dir)
{
    size_t count = 0;
    for (const auto& entry : fs::directory_iterator(dir))
        count += entry.path().filename().string().find("velmora-tmp") != std::string::npos;
    return count;
}

// Runs the tool in a child process with standard output on `stdoutFd`
// (or nowhere when negative); returns the child's pid.
pid_t startInChild(std::vector<std::string> args, int stdoutFd = -1)
{
    const pid_t pid = ::fork();
    if (pid != 0)
        return pid;
    const int sink = ::open("/dev/null", O_WRONLY);
    ::dup2(stdoutFd >= 0 ? stdoutFd : sink, STDOUT_FILENO);
    ::dup2(sink, STDERR_FILENO);
    args.insert(args.begin(), "velmora");
    std::vector<const char*> argv;
    for (const std::string& a : args)
        argv.push_back(a.c_str());
    std::ostringstream err;
    const int status = velmora::runCli(int(argv.size()), argv.data(), std::cout, err);
    std::cout.flush();
    ::_exit(status);
}

int exitStatusOf(pid_t pid)
{
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

class OutputSafety : public velmora_test::TempDirTest {
protected:
    OutputSafety() : TempDirTest("velmora-output-") {}

    void SetUp() override
    {
        TempDirTest::SetUp();
        input = dir / "a.obj";
        std::ofstream(input) << kTetra;
    }
    fs::path input;
};

TEST_F(OutputSafety, FifoAndStandardOutputAreWrittenInPlace)
{
    const fs::path fifo = dir / "pipe";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    std::string received;
    std::thread reader([&] { received = readText(fifo); });
    CliRun r = run({"info", input.string(), "-o", fifo.string()});
    reader.join();
    EXPECT_EQ(r.status, velmora::kExitOk) << r.err;
    EXPECT_TRUE(fs::is_fifo(fifo)) << "the FIFO was replaced";
    EXPECT_NE(received.find("\"parts\""), std::string::npos) << received;

    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    const pid_t child = startInChild({"info", input.string(), "-o", "/dev/stdout"}, pipeFds[1]);
    ::close(pipeFds[1]);
    std::string piped;
    char buffer[4096];
    for (ssize_t n; (n = ::read(pipeFds[0], buffer, sizeof buffer)) > 0;)
        piped.append(buffer, size_t(n));
    ::close(pipeFds[0]);
    EXPECT_EQ(exitStatusOf(child), velmora::kExitOk);
    EXPECT_NE(piped.find("\"parts\""), std::string::npos) << piped;
    EXPECT_EQ(temporaryFilesIn(dir), 0u);
}

TEST_F(OutputSafety, OutputsThatAreInputsOrUnwritableFailBeforeAnyWork)
{
    fs::create_symlink(input.filename(), dir / "link.obj");
    const std::string original = readText(input);
    const std::string broken = (dir / "broken.stl").string();
    std::ofstream(broken) << "solid x\n";
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string message;
    };
    const std::string in = input.string(), link = (dir / "link.obj").string(), folder = dir.string();
    const std::string view = (dir / "v.glb").string(), missing = (dir / "missing/x.glb").string();
    const int usage = velmora::kExitUsage, unwritable = velmora::kExitInput;
    const std::vector<Case> cases = {
        {{"info", in, "-o", link}, usage, link + ": the output is the input file '" + in + "'"},
        {{"plan", link, "-o", in}, usage, in + ": the output is the input file '" + link + "'"},
        {{"info", folder, "-o", in}, usage, in + ": the output is the input file '" + in + "'"},
        {{"explode", in, "-o", link}, usage, link + ": the output is the input file '" + in + "'"},
        {{"explode", in, "-o", view, "--report", view}, usage, view + ": the same file is given for two outputs"},
        // The outputs are checked first: the broken input is not even read.
        {{"explode", broken, "-o", missing}, unwritable,
         missing + ": the folder '" + (dir / "missing").string() + "' does not exist"},
        {{"plan", broken, "-o", folder}, unwritable, folder + ": is a directory"},
        {{"demo", "stack", "-o", folder}, unwritable, folder + ": is a directory"},
    };
    for (const Case& c : cases) {
        CliRun r = run(c.args);
        EXPECT_EQ(r.status, c.status) << c.args[0] << " " << c.args[1];
        EXPECT_EQ(r.err, "velmora: error: " + c.message + "\n");
    }
    EXPECT_EQ(readText(input), original);
    EXPECT_TRUE(fs::is_symlink(dir / "link.obj"));
    EXPECT_EQ(temporaryFilesIn(dir), 0u);
}

TEST_F(OutputSafety, ALinkedTargetIsReplacedAndTheLinkKept)
{
    const fs::path real = dir / "real.json";
    std::ofstream(real) << "old";
    ::chmod(real.c_str(), 0640);
    fs::create_symlink(real.filename(), dir / "report.json");
    CliRun r = run({"info", input.string(), "-o", (dir / "report.json").string()});
    ASSERT_EQ(r.status, velmora::kExitOk) << r.err;
    EXPECT_TRUE(fs::is_symlink(dir / "report.json"));
    EXPECT_NE(readText(real).find("\"parts\""), std::string::npos);
    EXPECT_EQ(fs::status(real).permissions() & fs::perms::all, fs::perms(0640));
}

TEST_F(OutputSafety, AnInterruptedRunLeavesNothingBehind)
{
    const fs::path grid = dir / "grid.obj";
    std::ofstream(grid) << cubeGridObj();
    for (int signal : {SIGINT, SIGTERM}) {
        const fs::path target = dir / "plan.json";
        const pid_t child = startInChild({"plan", grid.string(), "-o", target.string(), "--threads", "1"});
        while (temporaryFilesIn(dir) == 0 && ::waitpid(child, nullptr, WNOHANG) == 0)
            std::this_thread::yield();
        ::kill(child, signal);
        EXPECT_EQ(exitStatusOf(child), 128 + signal);
        EXPECT_EQ(temporaryFilesIn(dir), 0u);
        EXPECT_FALSE(fs::exists(target));
    }
}

TEST_F(OutputSafety, TemporaryFilesOfAKilledRunAreNotInputs)
{
    std::ofstream(dir / ".b.stl.velmora-tmp-x1Y2z3") << "solid broken\n";
    std::ofstream(dir / ".b.obj.velmora-tmp-Ab12Cd") << kTetra;
    CliRun r = run({"info", dir.string()});
    ASSERT_EQ(r.status, velmora::kExitOk) << r.err;
    EXPECT_NE(r.out.find("\"a\""), std::string::npos);
    EXPECT_EQ(r.out.find("velmora-tmp"), std::string::npos);
}

}  // namespace
