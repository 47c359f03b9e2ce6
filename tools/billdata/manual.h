#pragma once
// The manual page of the program, made from the same descriptions as its --help, so that the two
// cannot tell different stories.

#include <CLI/CLI.hpp>
#include <string>

namespace billdata::cli {

// The page in roff (man(7)) for section 1: the program's description and options, every
// subcommand with its description, arguments and options, and the footer of --help, a paragraph
// per line.
std::string manual_page(const CLI::App& app, const std::string& version);

}  // namespace billdata::cli
