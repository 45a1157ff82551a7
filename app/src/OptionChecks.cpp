#include "OptionChecks.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace velmora {
namespace {

std::string readable(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

std::string inQuotes(const std::string& value) { return "'" + value.substr(0, 60) + "'"; }

}  // namespace

CLI::Validator numberFrom(double lo, double hi)
{
    const std::string rule = "a number from " + readable(lo) + " to " + readable(hi);
    return CLI::Validator(
        [=](std::string& text) -> std::string {
            double value = 0;
            const char* end = text.data() + text.size();
            const auto [stop, ec] = std::from_chars(text.data(), end, value, std::chars_format::general);
            if (text.empty() || stop != end || ec != std::errc() || !std::isfinite(value) || value < lo ||
                value > hi)
                return "must be " + rule + ", not " + inQuotes(text);
            return {};
        },
        rule);
}

CLI::Validator wholeNumberFrom(unsigned long lo, unsigned long hi)
{
    const std::string rule = "a whole number from " + std::to_string(lo) + " to " + std::to_string(hi);
    return CLI::Validator(
        [=](std::string& text) -> std::string {
            unsigned long value = 0;
            const char* end = text.data() + text.size();
            const auto [stop, ec] = std::from_chars(text.data(), end, value);
            if (text.empty() || stop != end || ec != std::errc() || value < lo || value > hi)
                return "must be " + rule + ", not " + inQuotes(text);
            return {};
        },
        rule);
}

CLI::Validator oneOf(const std::vector<std::string>& choices)
{
    std::string rule = "one of ";
    for (size_t k = 0; k < choices.size(); ++k)
        rule += (k == 0 ? "" : k + 1 == choices.size() ? " or " : ", ") + choices[k];
    return CLI::Validator(
        [=](std::string& text) -> std::string {
            for (const std::string& choice : choices) {
                if (text == choice)
                    return {};
            }
            return "must be " + rule + ", not " + inQuotes(text);
        },
        rule);
}

std::string describeParseError(const CLI::ParseError& error)
{
    std::string what = error.what();
    if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
        const size_t colon = what.find(": ");
        const std::string extra = colon == std::string::npos ? what : what.substr(colon + 2);
        return (extra.rfind("-", 0) == 0 ? "unknown option " : "unexpected argument ") + inQuotes(extra);
    }
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
        const size_t colon = what.find(':');
        if (colon != std::string::npos && what.rfind("-", 0) == 0)
            return what.substr(0, colon) + ": a value is missing";
    }
    if (what == "A subcommand is required")
        return "a command is required: info, contacts, plan, explode, remove or demo";
    if (what == "inputs is required")
        return "an input is required (mesh files or folders)";
    if (!what.empty())
        what[0] = char(std::tolower((unsigned char)what[0]));
    return what;
}

}  // namespace velmora
