// Build-time tool: reads the public classes' headers and writes their contract comments as a C++
// include, one initializer {"Class", "Method", "text"} per comment ("" as the method: the class's
// own comment), so that the program describes a method in the words of its header.
//
//   extract_contracts <output.inc> <header>...
//
// The rules the headers follow: the class comment is the first comment of the file (after
// #pragma once), followed by the comment right above "class X {" when there is one; a method's
// contract is the comment block right above its declaration in the public section; declarations
// that follow one another without a blank line share the comment above the first. A comment
// line that is only "//" separates paragraphs.

#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string trim(const std::string& s) {
    const auto b = s.find_first_not_of(" \t\r");
    if (b == std::string::npos) return "";
    return s.substr(b, s.find_last_not_of(" \t\r") - b + 1);
}

bool is_comment(const std::string& line) {
    return trim(line).rfind("//", 0) == 0;
}

// Comment lines joined into text: lines of a paragraph by spaces, paragraphs by a newline.
std::string join(const std::vector<std::string>& lines) {
    std::string text;
    bool new_paragraph = true;
    for (const std::string& raw : lines) {
        const std::string line = trim(trim(raw).substr(2));
        if (line.empty()) {
            if (!text.empty()) new_paragraph = true;
            continue;
        }
        if (!text.empty()) text += new_paragraph ? "\n" : " ";
        text += line;
        new_paragraph = false;
    }
    return text;
}

std::string literal(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\')
            out += std::string("\\") + c;
        else if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out + "\"";
}

struct Entry {
    std::string method, text;
};

// The class name and its entries (the class's own first) of one header.
bool extract(const std::string& path, std::string& class_name, std::vector<Entry>& entries) {
    std::ifstream in(path);
    if (!in) {
        std::cerr << "extract_contracts: cannot read " << path << "\n";
        return false;
    }
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);

    std::vector<std::string> top, pending;
    std::size_t i = 0;
    while (i < lines.size() && !is_comment(lines[i]))
        ++i;
    while (i < lines.size() && is_comment(lines[i]))
        top.push_back(lines[i++]);

    bool in_class = false, in_public = false;
    std::string shared;  // the comment a declaration right after another one shares
    for (; i < lines.size(); ++i) {
        const std::string line = trim(lines[i]);
        if (!in_class) {
            if (line.rfind("class ", 0) == 0 && line.back() == '{') {
                class_name = trim(line.substr(6, line.find_first_of(" {", 6) - 6));
                std::string text = join(top);
                if (!pending.empty()) {
                    text += '\n';
                    text += join(pending);
                }
                entries.push_back({"", text});
                in_class = true;
            }
            if (is_comment(line))
                pending.push_back(line);
            else
                pending.clear();
            continue;
        }
        if (line == "};") break;
        if (line == "public:" || line == "private:" || line == "protected:") {
            in_public = line == "public:";
            pending.clear();
            shared.clear();
            continue;
        }
        if (line.empty()) {
            pending.clear();
            shared.clear();
        } else if (is_comment(line)) {
            pending.push_back(line);
        } else if (line.find('(') != std::string::npos) {
            std::string head = line.substr(0, line.find('('));
            const std::string name = head.substr(head.find_last_of(" *&") + 1);
            std::string text = pending.empty() ? shared : join(pending);
            if (in_public && !text.empty()) entries.push_back({name, text});
            shared = text;
            pending.clear();
            while (lines[i].find(';') == std::string::npos && i + 1 < lines.size())
                ++i;
        }
    }
    if (class_name.empty()) {
        std::cerr << "extract_contracts: no class in " << path << "\n";
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::cerr << "usage: extract_contracts <output.inc> <header>...\n";
        return 2;
    }
    std::ostringstream out;
    out << "// Generated from the classes' headers by extract_contracts; do not edit.\n";
    for (int a = 2; a < argc; ++a) {
        std::string class_name;
        std::vector<Entry> entries;
        if (!extract(argv[a], class_name, entries)) return 1;
        for (const Entry& e : entries)
            out << "{" << literal(class_name) << ", " << literal(e.method) << ", "
                << literal(e.text) << "},\n";
    }
    // Written only when it changed, so that an edit elsewhere in a header rebuilds nothing.
    std::ifstream old(argv[1]);
    std::stringstream previous;
    previous << old.rdbuf();
    if (old && previous.str() == out.str()) return 0;
    old.close();
    std::ofstream file(argv[1]);
    file << out.str();
    return file.good() ? 0 : 1;
}
