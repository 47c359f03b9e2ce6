#include "billdata/ado/statement.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cmath>
#include <cstring>
#include <stdexcept>

#include "billdata/dialect/dialect.h"

namespace billdata::ado {

namespace {

constexpr std::string_view kPlace = "{}";
constexpr std::size_t kNone = static_cast<std::size_t>(-1);
constexpr std::size_t kKeyStem = 9;  // the mark and the skeleton's id

bool runs_into_number(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           c == '.' || c == '@' || c == '#' || c == '$' || static_cast<unsigned char>(c) >= 0x80;
}

StatementLiteral::Kind kind_of(dialect::Literal::Kind k) {
    switch (k) {
        case dialect::Literal::Kind::Number:
            return StatementLiteral::Kind::Number;
        case dialect::Literal::Kind::String:
            return StatementLiteral::Kind::String;
        case dialect::Literal::Kind::NString:
            return StatementLiteral::Kind::NString;
    }
    return StatementLiteral::Kind::Number;
}

// Quotes inside a quoted text keep it one literal only when each is doubled.
bool quotes_doubled(std::string_view text) {
    for (std::size_t at = text.find('\''); at != std::string_view::npos;
         at = text.find('\'', at + 2))
        if (at + 1 >= text.size() || text[at + 1] != '\'') return false;
    return true;
}

}  // namespace

Skeleton::Skeleton(std::string_view text) {
    static std::atomic<std::uint64_t> next_id{1};
    id_ = next_id.fetch_add(1, std::memory_order_relaxed);

    // The text as the scan reads it with a one-digit number in every place: a bare place is then
    // a literal of its own, a quoted one lies inside a text literal.
    std::string probe;
    std::vector<std::size_t> piece_at;  // where each piece starts in the probe
    for (;;) {
        const auto at = text.find(kPlace);
        piece_at.push_back(probe.size());
        pieces_.emplace_back(text.substr(0, at));
        probe.append(text.substr(0, at));
        fixed_size_ += pieces_.back().size();
        if (at == std::string_view::npos) break;
        probe.push_back('0');
        text.remove_prefix(at + kPlace.size());
    }
    const dialect::Shape shape = dialect::statement_shape(probe);
    auto piece_of = [&](std::size_t offset) {
        std::size_t k = piece_at.size() - 1;
        while (piece_at[k] > offset)
            --k;
        return k;
    };
    places_.resize(pieces_.size() - 1);
    for (std::size_t p = 0; p < places_.size(); ++p) {
        const std::size_t at = piece_at[p] + pieces_[p].size();
        bool found = false;
        for (const dialect::Literal& l : shape.literals) {
            if (l.offset == at && l.length == 1 && l.kind == dialect::Literal::Kind::Number) {
                const char before = at > 0 ? probe[at - 1] : ' ';
                const char after = at + 1 < probe.size() ? probe[at + 1] : ' ';
                if (before == '-' || runs_into_number(before) || runs_into_number(after))
                    throw std::logic_error("a number's place runs into its neighbours: " + probe);
                places_[p].bare = true;
                found = true;
            } else if (l.kind != dialect::Literal::Kind::Number && l.offset < at &&
                       at + 1 < l.offset + l.length) {
                found = true;
            }
        }
        if (!found)
            throw std::logic_error("a value's place is neither a number nor inside a text: " +
                                   probe);
    }
    piece_views_.assign(pieces_.begin(), pieces_.end());
    first_literal_.assign(pieces_.size() + 1, 0);
    for (const dialect::Literal& l : shape.literals) {
        FixedLiteral f;
        f.kind = kind_of(l.kind);
        const std::size_t start = piece_of(l.offset);
        if (l.kind == dialect::Literal::Kind::Number && start + 1 < piece_at.size() &&
            l.offset == piece_at[start] + pieces_[start].size()) {
            continue;  // a bare place: its value's literal comes with the value
        } else {
            const std::size_t last = piece_of(l.offset + l.length - 1);
            f.start_offset = static_cast<std::uint32_t>(l.offset - piece_at[start]);
            for (std::size_t k = start + 1; k < first_literal_.size(); ++k)
                ++first_literal_[k];
            f.end_piece = static_cast<std::uint32_t>(last);
            f.end_offset = static_cast<std::uint32_t>(l.offset + l.length - piece_at[last]);
            const std::size_t quote = f.kind == StatementLiteral::Kind::NString ? 2 : 1;
            if (last == start + 1 && f.end_offset == 1 &&
                f.start_offset + quote == pieces_[start].size())
                f.lone_place = static_cast<std::int32_t>(start);
            const std::string_view digits = std::string_view(probe).substr(l.offset, l.length);
            if (l.kind == dialect::Literal::Kind::Number && digits.size() <= 18 &&
                digits.find_first_not_of("0123456789") == std::string_view::npos) {
                f.whole = 0;
                for (char c : digits)
                    f.whole = f.whole * 10 + (c - '0');
            }
        }
        literals_.push_back(f);
    }
}

void Statement::throw_place_count(const Skeleton& skeleton) {
    throw std::logic_error("a statement of " + std::to_string(skeleton.places()) +
                           " values built with another number: " + skeleton.pieces_.front());
}

void Statement::grow(std::size_t n) const {
    text_.resize(std::max(2 * text_.size(), size_ + n));
}

namespace {

constexpr std::int64_t kEighteenDigits = 999'999'999'999'999'999;

// What the scan makes of a number's text in a number's place: a minus is an operator to it, and
// the literal is what follows.
struct NumberText {
    bool number = false;  // digits first: a number literal
    bool negative = false;
    bool whole = true;
    std::size_t start = 0;        // where the literal starts
    std::size_t significant = 0;  // digits from the first that is not 0, before any exponent
};

NumberText read_number(std::string_view t) {
    NumberText n;
    n.negative = !t.empty() && t[0] == '-';
    n.start = n.negative ? 1 : 0;
    if (n.start >= t.size() || t[n.start] < '0' || t[n.start] > '9') return n;
    n.number = true;
    bool exponent = false;
    for (std::size_t i = n.start; i < t.size(); ++i) {
        const char c = t[i];
        if (c == '.') {
            n.whole = false;
        } else if (c == 'e' || c == 'E') {
            n.whole = false;
            exponent = true;
        } else if (!exponent && c >= '0' && c <= '9' && (n.significant > 0 || c != '0')) {
            ++n.significant;
        }
    }
    return n;
}

}  // namespace

void Statement::begin(const Skeleton& skeleton) {
    skeleton_ = &skeleton;
    shaped_ = true;
    written_ = false;
    values_.clear();
    strings_.clear();
    // The key: a mark no scanned text starts with, the skeleton, then each place's kind of number.
    key_.assign(kKeyStem + skeleton.places(), '.');
    key_[0] = '\x02';
    std::memcpy(key_.data() + 1, &skeleton.id_, sizeof skeleton.id_);
    kinds_ = key_.data() + kKeyStem;
}

void Statement::finish() {
    if (!shaped_) key_.clear();
}

void Statement::put(std::size_t place, std::int64_t v) {
    Value value;
    value.whole = v;
    if (bare(place)) {
        kinds_[place] = v < 0 ? 'I' : 'i';
    } else {
        // Inside a text its digits are text: written now, bound as they stand.
        char digits[24];
        const std::string_view written = text_of(value, digits);
        value.at = static_cast<std::uint32_t>(strings_.size());
        value.size = static_cast<std::uint32_t>(written.size());
        strings_.append(written);
    }
    values_.push_back(value);
}

void Statement::put(std::size_t place, double v) {
    Value value;
    value.type = Value::Type::Real;
    value.real = v;
    if (std::fabs(v) < 1e15 && bare(place)) {
        // Written as its whole digits when it is whole, else with a point (format_double).
        values_.push_back(value);
        kinds_[place] = static_cast<double>(static_cast<std::int64_t>(v)) == v
                            ? (v < 0 ? 'I' : 'i')
                            : (v < 0 ? 'D' : 'd');
        return;
    }
    // Any other in the shortest form that reads back as it, perhaps with an exponent, and any
    // inside a text: written now, which also refuses what has no text.
    char text[Variant::kDoubleTextRoom];
    const std::string_view written(text, Variant::format_double(v, text));
    value.at = static_cast<std::uint32_t>(strings_.size());
    value.size = static_cast<std::uint32_t>(written.size());
    strings_.append(written);
    values_.push_back(value);
    if (!bare(place)) return;
    const NumberText n = read_number(written);
    if (!n.number)
        shaped_ = false;
    else
        kinds_[place] = n.negative ? (n.whole ? 'I' : 'D') : (n.whole ? 'i' : 'd');
}

void Statement::put(std::size_t place, const Variant& v) {
    switch (v.type()) {
        case VarType::Integer:
        case VarType::Long:
            put(place, static_cast<std::int64_t>(v.to_int32()));
            return;
        case VarType::Double:
            put(place, v.to_double());
            return;
        default:
            // Anything else is no number literal; in a text it is as good as any other text.
            put_text(place, v.to_string(), Value::Type::Word);
    }
}

void Statement::put(std::size_t place, std::string_view v) {
    put_text(place, v, Value::Type::Text);
}

void Statement::put(std::size_t place, const QuotedText& v) {
    put_text(place, v.text, Value::Type::Quoted);
}

void Statement::put_text(std::size_t place, std::string_view v, Value::Type type) {
    Value value;
    value.type = type;
    value.at = static_cast<std::uint32_t>(strings_.size());
    value.size = static_cast<std::uint32_t>(v.size());
    strings_.append(v);
    values_.push_back(value);
    if (!bare(place)) {
        if (type != Value::Type::Quoted && !quotes_doubled(v)) shaped_ = false;
        return;
    }
    // A whole number as text (a bill kind) is that number; any other text is no literal.
    std::string_view digits = v;
    if (!digits.empty() && digits.front() == '-') digits.remove_prefix(1);
    if (type != Value::Type::Text || digits.empty() ||
        digits.find_first_not_of("0123456789") != std::string_view::npos)
        shaped_ = false;
    else
        kinds_[place] = v.front() == '-' ? 'I' : 'i';
}

std::string_view Statement::text_of(const Value& v, char* room) const {
    if (v.size != 0 || (v.type != Value::Type::Whole && v.type != Value::Type::Real))
        return std::string_view(strings_.data() + v.at, v.size);
    const std::size_t n =
        v.type == Value::Type::Whole
            ? static_cast<std::size_t>(std::to_chars(room, room + 24, v.whole).ptr - room)
            : Variant::format_double(v.real, room);
    return std::string_view(room, n);
}

void Statement::append_value(std::size_t place, const Value& v) const {
    const std::size_t start = size_;
    if (v.type == Value::Type::Quoted) {
        std::string_view rest = text_of(v);
        for (auto at = rest.find('\''); at != std::string_view::npos; at = rest.find('\'')) {
            append(rest.substr(0, at + 1));
            append("'");
            rest.remove_prefix(at + 1);
        }
        append(rest);
        return;
    }
    if (v.size == 0)
        size_ += text_of(v, room(Variant::kDoubleTextRoom)).size();
    else
        append(text_of(v));
    // A number's place holds a number here: the statement would have no shape otherwise.
    if (!shaped_ || !bare(place)) return;
    const std::string_view written(text_.data() + start, size_ - start);
    const NumberText n = read_number(written);
    const std::size_t digits = start + n.start;
    StatementLiteral l{digits, size_ - digits, StatementLiteral::Kind::Number};
    if (v.type == Value::Type::Whole) {
        if (v.whole >= -kEighteenDigits && v.whole <= kEighteenDigits)
            l.whole = v.whole < 0 ? -v.whole : v.whole;
    } else if (v.type == Value::Type::Real) {
        // Its value is known when its digits say it exactly; a text's is read by the driver.
        const double magnitude = std::fabs(v.real);
        if (n.whole && magnitude < 1e15) l.whole = static_cast<std::int64_t>(magnitude);
        if (!n.whole && n.significant <= 15) l.real = magnitude;
    }
    literals_.push_back(l);
    origins_.push_back(Origin{Origin::Kind::Place, static_cast<std::uint32_t>(place)});
}

void Statement::write_text() const {
    const Skeleton& s = *skeleton_;
    size_ = 0;
    literals_.clear();
    origins_.clear();
    // Room for the usual values at once: a grown text keeps its room for the next statements.
    const std::size_t usual = s.fixed_size_ + 24 * s.places();
    if (text_.size() < usual) text_.resize(usual);
    // A text literal with places inside, until the piece that ends it is written.
    std::size_t open = kNone, open_end_piece = 0, open_end_offset = 0;
    for (std::size_t index = 0;; ++index) {
        const std::size_t base = size_;
        if (open != kNone && open_end_piece == index) {
            literals_[open].length = base + open_end_offset - literals_[open].offset;
            open = kNone;
        }
        for (std::uint32_t i = s.first_literal_[index]; i < s.first_literal_[index + 1]; ++i) {
            const Skeleton::FixedLiteral& f = s.literals_[i];
            if (f.end_piece == index) {
                literals_.push_back(StatementLiteral{
                    base + f.start_offset, f.end_offset - f.start_offset, f.kind, f.whole});
                origins_.push_back(Origin{Origin::Kind::Fixed, i});
            } else {
                literals_.push_back(StatementLiteral{base + f.start_offset, 0, f.kind});
                origins_.push_back(Origin{Origin::Kind::Text, i});
                open = literals_.size() - 1;
                open_end_piece = f.end_piece;
                open_end_offset = f.end_offset;
            }
        }
        append(s.piece_views_[index]);
        if (index == s.places()) break;
        append_value(index, values_[index]);
    }
    if (!shaped_) {
        literals_.clear();
        origins_.clear();
    }
    written_ = true;
}

std::string_view Statement::text_literal(std::uint32_t index, std::string& out) const {
    const Skeleton& s = *skeleton_;
    const Skeleton::FixedLiteral& f = s.literals_[index];
    std::size_t piece = 0;
    while (s.first_literal_[piece + 1] <= index)
        ++piece;
    out.assign(s.piece_views_[piece].substr(f.start_offset));
    char number[Variant::kDoubleTextRoom];
    for (;;) {
        const Value& v = values_[piece];
        if (v.type == Value::Type::Quoted) {
            for (const char c : text_of(v)) {
                out.push_back(c);
                if (c == '\'') out.push_back(c);
            }
        } else {
            out.append(text_of(v, number));
        }
        ++piece;
        if (piece == f.end_piece) break;
        out.append(s.piece_views_[piece]);
    }
    out.append(s.piece_views_[piece].substr(0, f.end_offset));
    return out;
}

}  // namespace billdata::ado
