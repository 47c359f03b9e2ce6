#pragma once
// Statements built from a fixed text and values, for the statements a busy operation runs over
// and over (a till sale's lines). The text comes out byte for byte as concatenation would make
// it, and with it where its literals are, so that a driver's statement cache need not scan the
// text again to find them.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "billdata/ado/variant.h"

namespace billdata::ado {

// A literal of a built statement: where it stands in the text and its kind, as the dialect
// layer's shape scan would find it.
struct StatementLiteral {
    enum class Kind : std::uint8_t { Number, String, NString };
    std::size_t offset = 0;
    std::size_t length = 0;
    Kind kind = Kind::Number;
    // A whole number's value when the builder knows it (it wrote at most 18 digits), else -1.
    std::int64_t whole = -1;
    // A decimal's value when the builder knows it (at most 15 significant digits, which every
    // reader reads back as the same double), else -1.
    double real = -1;
};

// A text value that goes between quotes with its single quotes doubled (as common::sql_text).
struct QuotedText {
    std::string_view text;
};

// The fixed text of a statement, "{}" marking each place a value goes. A place stands either
// alone where a number literal may (`Values({},`) or inside a quoted text (`'{}'`,
// `'单号:{}'`). Read once; raises std::logic_error for a place that is neither, or that a value
// could run into its neighbours from (after a name, a digit, a point or a minus; before a name,
// a digit or a point). Immutable once made: share it (a `static const` per statement).
class Skeleton {
  public:
    explicit Skeleton(std::string_view text);
    Skeleton(const Skeleton&) = delete;  // its pieces are seen through views into itself
    Skeleton& operator=(const Skeleton&) = delete;

    std::size_t places() const { return places_.size(); }

  private:
    friend class Statement;
    struct Place {
        bool bare = false;  // a number of its own, else inside a quoted text
    };
    // A literal of the fixed text: from an offset in one fixed piece to an offset in the same
    // or a later one (a text with places inside).
    struct FixedLiteral {
        std::uint32_t start_offset = 0, end_piece = 0, end_offset = 0;
        StatementLiteral::Kind kind = StatementLiteral::Kind::Number;
        std::int64_t whole = -1;  // a fixed whole number's value (StatementLiteral::whole)
    };
    std::vector<std::string> pieces_;            // places() + 1 fixed pieces around the places
    std::vector<std::string_view> piece_views_;  // the same, read on every statement
    std::vector<Place> places_;
    std::vector<FixedLiteral> literals_;        // in order, grouped by the piece they start in
    std::vector<std::uint32_t> first_literal_;  // per piece (and one past the last)
    std::uint64_t id_ = 0;                      // unique in the process: the cache key's stem
    std::size_t fixed_size_ = 0;
};

// One statement made from a skeleton and its values, in buffers reused from one statement to the
// next. Values: integers and doubles written as Variant::to_string writes them; a Variant (a
// caller's field) as its to_string; a text inside quotes as it is (its quotes already doubled)
// or a QuotedText. When a value leaves the text's literals other than the skeleton foresaw (a
// word where a number goes, a lone quote in a text) the statement is still made, without a
// shape: the driver then reads the text as it reads any other.
class Statement {
  public:
    template <class... Values>
    void build(const Skeleton& skeleton, const Values&... values) {
        if (sizeof...(Values) != skeleton.places()) throw_place_count(skeleton);
        begin(skeleton);
        std::size_t place = 0;
        ((put(place, values), piece(++place)), ...);
        finish();
    }

    std::string_view text() const { return std::string_view(text_.data(), size_); }
    // The key of the statement's shape for a driver's cache, or empty when it has none (see
    // above). Two statements have the same key only when they come from the same skeleton with
    // values of the same kinds in its number places.
    const std::string& key() const { return key_; }
    const std::vector<StatementLiteral>& literals() const { return literals_; }

  private:
    [[noreturn]] static void throw_place_count(const Skeleton& skeleton);
    void begin(const Skeleton& skeleton);
    // The fixed piece `index`: most hold no literal, and are only copied.
    void piece(std::size_t index) {
        const Skeleton& s = *skeleton_;
        if (open_ == kNone && s.first_literal_[index] == s.first_literal_[index + 1])
            append(s.piece_views_[index]);
        else
            piece_with_literals(index);
    }
    void piece_with_literals(std::size_t index);
    void finish();

    void put(std::size_t place, std::int64_t v);
    void put(std::size_t place, double v);
    void put(std::size_t place, const Variant& v);
    void put(std::size_t place, std::string_view v);
    void put(std::size_t place, const QuotedText& v);
    void put(std::size_t place, const std::string& v) { put(place, std::string_view(v)); }
    void put(std::size_t place, const char* v) { put(place, std::string_view(v)); }
    template <class Int,
              class = std::enable_if_t<std::is_integral_v<Int> && !std::is_same_v<Int, bool>>>
    void put(std::size_t place, Int v) {
        put(place, static_cast<std::int64_t>(v));
    }
    // Room for `n` more characters at the end of the text.
    char* room(std::size_t n) {
        if (size_ + n > text_.size()) grow(n);
        return text_.data() + size_;
    }
    void grow(std::size_t n);
    void append(std::string_view s) {
        std::memcpy(room(s.size()), s.data(), s.size());
        size_ += s.size();
    }
    // A number's text just appended at `start` in a bare place: its literal's kind in the key.
    // `whole`: the value's magnitude when it is a whole number of at most 18 digits, else -1;
    // `real`: its magnitude when it was written as a decimal that reads back as it, else -1.
    void number_written(std::size_t place, std::size_t start, std::int64_t whole, double real);
    void text_written(std::size_t place, std::size_t start);

    const Skeleton* skeleton_ = nullptr;
    bool shaped_ = true;
    std::string text_;  // the text is its first size_ characters; the rest is room
    std::size_t size_ = 0;
    std::string key_;
    char* kinds_ = nullptr;  // in key_: the kind of number in each place
    std::vector<StatementLiteral> literals_;
    // A text literal with places inside, until the piece that ends it is written.
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
    std::size_t open_ = kNone;
    std::size_t open_end_piece_ = 0, open_end_offset_ = 0;
};

}  // namespace billdata::ado
