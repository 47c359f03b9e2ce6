#pragma once
// A JSON text read once into a flat list of values, for the arguments of late-bound calls.
// It accepts exactly the texts of the JSON grammar that the rest of the program reads with the
// general-purpose JSON library (a leading byte-order mark skipped, a NUL byte outside a string
// ending the text, a number that overflows a double refused), and reads values the same way:
// an integer that fits 64 bits is an integer, any other number a double; an object's members
// come in byte order of their names, and a name given twice stands for its last value. It makes
// one pass over the text, keeps strings without escapes as views of it, and reuses its storage
// when read again, which is what a long batch of calls needs.

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace billdata::server {

class JsonDoc {
  public:
    enum class Kind : std::uint8_t { Null, Boolean, Integer, Double, String, Array, Object };

    // One value. Containers are followed by their contents: an array by its elements, an object
    // by its members as name (a String) and value in turn.
    struct Node {
        Kind kind = Kind::Null;
        bool boolean = false;
        std::uint32_t size = 0;            // elements of an array, members of an object
        std::uint32_t next = 0;            // the index just past this value and its contents
        std::uint32_t begin = 0, end = 0;  // the value's own text in the source
        std::int64_t integer = 0;
        double number = 0;
        std::string_view text;  // a string's text, escapes decoded
    };

    struct Member {
        std::string_view name;
        std::uint32_t value;
    };

    static constexpr std::uint32_t npos = ~std::uint32_t{0};

    // Reads `text` (which passed check_json_text: well-formed UTF-8) as one JSON value; false when
    // it is not JSON. The document refers to `text`, which must outlive its use.
    bool parse(std::string_view text);

    // The value read last is node 0.
    const Node& node(std::uint32_t index) const { return nodes_[index]; }
    // The source text of a value.
    std::string_view source(std::uint32_t index) const {
        return text_.substr(nodes_[index].begin, nodes_[index].end - nodes_[index].begin);
    }
    // An array's first element (then each element's `next` is the one after it), or an object's
    // first member name (its value is the node after it, whose `next` is the next name).
    static std::uint32_t first(std::uint32_t container) { return container + 1; }
    // The members of an object in byte order of their names, each name once with its last value.
    std::vector<Member> members(std::uint32_t object) const;
    // The value of the object's member `name` (its last one), or npos.
    std::uint32_t find(std::uint32_t object, std::string_view name) const;

  private:
    struct Reader;

    std::string_view text_;
    std::vector<Node> nodes_;
    std::deque<std::string> decoded_;  // texts of the strings that hold escapes
};

}  // namespace billdata::server
