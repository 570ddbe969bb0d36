#include "terminal/HelpText.hpp"

#include <boost/algorithm/string/replace.hpp>
#include <boost/algorithm/string/trim.hpp>

#include <utility>

namespace agent::orvi::tool {

const char* const programExamples = R"(Examples:
  orvi-stream publish report.pdf      publish a file; its UUID is printed
  orvi-stream ls                      who publishes what
  orvi-stream cat UUID > copy.pdf     read it, in another process
  orvi-stream COMMAND --help          examples and options of a command)";

const char* const publishExamples = R"(Examples:
  orvi-stream publish *.log                     publish files for reading
  orvi-stream publish --write notes.txt         a file that others may write as well
  journalctl -f | orvi-stream publish --live -  what comes through a pipe, as it comes
  orvi-stream publish --listen 0.0.0.0:7000 --tls-cert me.pem --tls-key me.key \
      --tls-ca authority.pem data.bin           for other machines, with mutual TLS)";

const char* const listExamples = R"(Examples:
  orvi-stream ls              what the processes of this user publish here
  orvi-stream ls --watch      go on, and tell what comes (+) and goes (-)
  orvi-stream ls --json | python3 -m json.tool
  orvi-stream ls --connect data.example.org:7000 --tls-cert me.pem \
      --tls-key me.key --tls-ca authority.pem)";

const char* const statExamples = R"(Examples:
  orvi-stream stat 00112233-4455-6677-8899-aabbccddeeff
  orvi-stream stat --timeout 0 --json 00112233-4455-6677-8899-aabbccddeeff)";

const char* const catExamples = R"(Examples:
  orvi-stream cat 00112233-4455-6677-8899-aabbccddeeff > copy
  orvi-stream cat --offset 1M --count 64K 00112233-4455-6677-8899-aabbccddeeff | xxd)";

const char* const putExamples = R"(Examples:
  orvi-stream put 00112233-4455-6677-8899-aabbccddeeff < new.txt
  printf 'corrected' | orvi-stream put --offset 512 00112233-4455-6677-8899-aabbccddeeff)";

ExamplesFirst::ExamplesFirst() {
    constexpr std::size_t wideEnough = 28;
    column_width(wideEnough);
    label("SUBCOMMAND", "COMMAND");
}

std::string
ExamplesFirst::make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const {
    std::string help = Formatter::make_help(app, std::move(name), mode);
    boost::algorithm::replace_all(help, "\n\n\n", "\n\n");
    boost::algorithm::trim_right(help);
    return app->get_footer() + "\n\n" + help + "\n";
}

std::string ExamplesFirst::make_footer(const CLI::App*) const {
    return "";
}

/// Without the inherited remark about how many commands there may be.
std::string ExamplesFirst::make_description(const CLI::App* app) const {
    return app->get_description() + "\n";
}

} // namespace agent::orvi::tool
