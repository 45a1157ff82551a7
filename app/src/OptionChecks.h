// Checks of option values for the command line, one message style for all:
// "must be a number from 0.001 to 89.999, not 'nan'". Numbers are read in the
// C locale's plain decimal form; infinities, NaN and hexadecimal are refused.
// Limits are printed with at most six significant digits. Internal to the app.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace velmora {

// A finite decimal number in [lo, hi].
CLI::Validator numberFrom(double lo, double hi);
// A whole number (digits only) in [lo, hi].
CLI::Validator wholeNumberFrom(unsigned long lo, unsigned long hi);
// One of `choices`, exactly.
CLI::Validator oneOf(const std::vector<std::string>& choices);

// A parse error of the command line as one line without the
// "velmora: error: " prefix.
std::string describeParseError(const CLI::ParseError& error);

}  // namespace velmora
