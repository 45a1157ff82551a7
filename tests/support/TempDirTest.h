// A test fixture with a folder of its own: made empty before each test under
// the system's temporary folder, named after the fixture's prefix and the
// running test (so tests run in parallel never share one), removed after.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace velmora_test {

class TempDirTest : public ::testing::Test {
protected:
    explicit TempDirTest(std::string prefix) : mPrefix(std::move(prefix)) {}

    void SetUp() override
    {
        dir = std::filesystem::temp_directory_path() /
              (mPrefix + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir);
    }
    void TearDown() override { std::filesystem::remove_all(dir); }

    std::filesystem::path dir;

private:
    std::string mPrefix;
};

}  // namespace velmora_test
