// Everything written to std::cout while a StdoutCapture lives is kept
// instead of printed: the library's progress and timing lines stay out of
// the test log, and tests can check them.
#pragma once

#include <iostream>
#include <sstream>
#include <string>

namespace velmora_test {

class StdoutCapture {
public:
    StdoutCapture() : mPrevious(std::cout.rdbuf(mBuffer.rdbuf())) {}
    ~StdoutCapture() { std::cout.rdbuf(mPrevious); }
    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;
    std::string text() const { return mBuffer.str(); }

private:
    std::ostringstream mBuffer;
    std::streambuf* mPrevious;
};

}  // namespace velmora_test
