#include "manual.h"

#include <algorithm>
#include <string_view>

namespace billdata::cli {

namespace {

// Text for roff: backslashes doubled, a line that would start with '.' or '\'' made literal.
std::string roff(std::string_view text) {
    std::string out;
    bool line_start = true;
    for (char c : text) {
        if (line_start && (c == '.' || c == '\'')) out += "\\&";
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
        line_start = c == '\n';
    }
    return out;
}

// "--db <DB>" or "db" as a user writes it.
std::string usage_of(const CLI::Option& opt) {
    if (opt.get_positional() && opt.nonpositional() == false) return "<" + opt.get_name() + ">";
    // The long name when there is one ("--help" rather than "-h").
    std::string names = opt.get_name(false, true), name;
    for (std::size_t at = 0; at <= names.size();) {
        const auto comma = std::min(names.find(',', at), names.size());
        const std::string one = names.substr(at, comma - at);
        if (name.empty() || one.rfind("--", 0) == 0) name = one;
        at = comma + 1;
    }
    if (opt.get_items_expected_max() != 0) name += " <" + opt.get_single_name() + ">";
    return name;
}

bool shown(const CLI::Option* opt) {
    return !opt->get_group().empty();
}

void options(std::string& page, const CLI::App& app) {
    for (const CLI::Option* opt : app.get_options(shown)) {
        page += ".TP\n.B " + roff(usage_of(*opt)) + "\n" + roff(opt->get_description()) + "\n";
    }
}

}  // namespace

std::string manual_page(const CLI::App& app, const std::string& version) {
    const std::string& name = app.get_name();
    std::string page =
        ".TH " + roff(name) + " 1 \"\" \"" + roff(name + " " + version) + "\" \"User Commands\"\n";
    page += ".SH NAME\n" + roff(app.get_description()) + "\n";
    page += ".SH SYNOPSIS\n.B " + roff(name) + "\n.I command\n[options]\n";
    page += ".SH OPTIONS\n";
    options(page, app);
    page += ".SH COMMANDS\n";
    for (const CLI::App* sub :
         app.get_subcommands([](const CLI::App* s) { return !s->get_group().empty(); })) {
        page += ".SS " + roff(name + " " + sub->get_name());
        for (const CLI::Option* opt : sub->get_options(shown)) {
            if (opt == sub->get_help_ptr()) continue;
            page += " " + roff(opt->get_required() ? usage_of(*opt) : "[" + usage_of(*opt) + "]");
        }
        page += "\n" + roff(sub->get_description()) + "\n";
        for (const CLI::Option* opt : sub->get_options(shown)) {
            if (opt == sub->get_help_ptr()) continue;
            page += ".TP\n.B " + roff(usage_of(*opt)) + "\n" + roff(opt->get_description()) + "\n";
        }
    }
    page += ".SH NOTES\n";
    const std::string footer_text = app.get_footer();
    std::string_view footer = footer_text;
    while (!footer.empty()) {
        const auto end = footer.find('\n');
        page += ".PP\n" + roff(footer.substr(0, end)) + "\n";
        footer = end == std::string_view::npos ? "" : footer.substr(end + 1);
    }
    return page;
}

}  // namespace billdata::cli
