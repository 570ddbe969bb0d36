#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace agent::orvi::tool {

/// Writes the help of a command, of which its footer comes first: examples say more than a list of
/// options.
class ExamplesFirst : public CLI::Formatter {
public:
    ExamplesFirst();

    std::string
    make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;
    std::string make_footer(const CLI::App* app) const override;
    std::string make_description(const CLI::App* app) const override;
};

extern const char* const programExamples;
extern const char* const publishExamples;
extern const char* const listExamples;
extern const char* const statExamples;
extern const char* const catExamples;
extern const char* const putExamples;

} // namespace agent::orvi::tool
