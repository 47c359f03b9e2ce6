#pragma once
// Statements built from a fixed text and values, for the statements a busy operation runs over
// and over (a till sale's lines). The text comes out byte for byte as concatenation would make
// it, and with it where its literals are, so that a driver's statement cache need not scan the
// text again to find them. A driver that has the statement's shape prepared can take its
// literals alone, and then the text is never written.

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
        std::int64_t whole = -1;       // a fixed whole number's value (StatementLiteral::whole)
        std::int32_t lone_place = -1;  // a text that is one place alone ('{}'): the place
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
//
// Building takes the values in and makes the key; the text is written when first asked for. A
// driver that has the statement's shape prepared can bind the values themselves (values(),
// origins()), and then the text is never written.
class Statement {
  public:
    template <class... Values>
    void build(const Skeleton& skeleton, const Values&... values) {
        if (sizeof...(Values) != skeleton.places()) throw_place_count(skeleton);
        begin(skeleton);
        std::size_t place = 0;
        (put(place++, values), ...);
        finish();
    }

    std::string_view text() const {
        if (!written_) write_text();
        return std::string_view(text_.data(), size_);
    }
    // The key of the statement's shape for a driver's cache, or empty when it has none (see
    // above). Two statements have the same key only when they come from the same skeleton with
    // values of the same kinds in its number places: their literals then stand in the same
    // order and come from the same places (origins()).
    const std::string& key() const { return key_; }
    const std::vector<StatementLiteral>& literals() const {
        if (!written_) write_text();
        return literals_;
    }

    // A value as it was given: a number, or a text (text_of).
    struct Value {
        // A number comes with its text inside a text, and beyond 1e15 (no plain digits).
        enum class Type : std::uint8_t {
            Whole,
            Real,
            Text,    // written as it is; in a number's place, a number only when all digits
            Word,    // a caller's field that is no number: written as it is, never a number
            Quoted,  // a QuotedText: its quotes doubled when written
        };
        Type type = Type::Whole;
        std::int64_t whole = 0;
        double real = 0;
        std::uint32_t at = 0, size = 0;
    };
    const std::vector<Value>& values() const { return values_; }
    std::string_view text_of(const Value& v) const {
        return std::string_view(strings_.data() + v.at, v.size);
    }
    // Where each literal of the text comes from, in the order of literals(): the skeleton's own
    // text (`index`: its literal), a number's place (`index`: the place), or a text literal with
    // places inside (`index`: the skeleton's literal, text_literal() writes it).
    struct Origin {
        enum class Kind : std::uint8_t { Fixed, Place, Text };
        Kind kind = Kind::Fixed;
        std::uint32_t index = 0;
    };
    const std::vector<Origin>& origins() const {
        if (!written_) write_text();
        return origins_;
    }
    // The skeleton's literal `index`, a text with places inside, as this statement writes it
    // (quotes and all) into `out`.
    std::string_view text_literal(std::uint32_t index, std::string& out) const;
    // When that literal is one place alone between its quotes ('{}'), the place: its value is
    // then all of the text between them. Else -1.
    std::int32_t lone_place(std::uint32_t index) const {
        return skeleton_->literals_[index].lone_place;
    }
    // A value's text as the statement's text has it: a number without a text of its own is
    // written into `room`, which has room for Variant::kDoubleTextRoom characters.
    std::string_view text_of(const Value& v, char* room) const;

  private:
    [[noreturn]] static void throw_place_count(const Skeleton& skeleton);
    void begin(const Skeleton& skeleton);
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
    void put_text(std::size_t place, std::string_view v, Value::Type type);
    bool bare(std::size_t place) const { return skeleton_->places_[place].bare; }

    void write_text() const;
    // Room for `n` more characters at the end of the text.
    char* room(std::size_t n) const {
        if (size_ + n > text_.size()) grow(n);
        return text_.data() + size_;
    }
    void grow(std::size_t n) const;
    void append(std::string_view s) const {
        std::memcpy(room(s.size()), s.data(), s.size());
        size_ += s.size();
    }
    // A value's text to the end of the text, with its literal in a number's place.
    void append_value(std::size_t place, const Value& v) const;

    const Skeleton* skeleton_ = nullptr;
    bool shaped_ = true;
    std::vector<Value> values_;
    std::string strings_;
    std::string key_;
    char* kinds_ = nullptr;  // in key_: the kind of number in each place
    // The text, written when first asked for: its first size_ characters; the rest is room.
    mutable bool written_ = false;
    mutable std::string text_;
    mutable std::size_t size_ = 0;
    mutable std::vector<StatementLiteral> literals_;
    mutable std::vector<Origin> origins_;
};

}  // namespace billdata::ado
