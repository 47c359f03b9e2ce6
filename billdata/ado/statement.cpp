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

void Statement::grow(std::size_t n) {
    text_.resize(std::max(2 * text_.size(), size_ + n));
}

void Statement::begin(const Skeleton& skeleton) {
    skeleton_ = &skeleton;
    shaped_ = true;
    size_ = 0;
    // Room for the usual values at once: a grown text keeps its room for the next statements.
    const std::size_t usual = skeleton.fixed_size_ + 24 * skeleton.places();
    if (text_.size() < usual) text_.resize(usual);
    // The key: a mark no scanned text starts with, the skeleton, then each place's kind of number.
    key_.assign(kKeyStem + skeleton.places(), '.');
    key_[0] = '\x02';
    std::memcpy(key_.data() + 1, &skeleton.id_, sizeof skeleton.id_);
    kinds_ = key_.data() + kKeyStem;
    literals_.clear();
    open_ = kNone;
    piece(0);
}

void Statement::piece_with_literals(std::size_t index) {
    const std::size_t base = size_;
    if (open_ != kNone && open_end_piece_ == index) {
        literals_[open_].length = base + open_end_offset_ - literals_[open_].offset;
        open_ = kNone;
    }
    const Skeleton& s = *skeleton_;
    for (std::uint32_t i = s.first_literal_[index]; i < s.first_literal_[index + 1]; ++i) {
        const Skeleton::FixedLiteral& f = s.literals_[i];
        if (f.end_piece == index) {
            literals_.push_back(StatementLiteral{base + f.start_offset,
                                                 f.end_offset - f.start_offset, f.kind, f.whole});
        } else {
            literals_.push_back(StatementLiteral{base + f.start_offset, 0, f.kind});
            open_ = literals_.size() - 1;
            open_end_piece_ = f.end_piece;
            open_end_offset_ = f.end_offset;
        }
    }
    append(s.piece_views_[index]);
}

void Statement::number_written(std::size_t place, std::size_t start, std::int64_t known,
                               double known_real) {
    if (!skeleton_->places_[place].bare) return;  // digits inside a text
    // A minus is an operator to the scan: the literal is the digits after it.
    const char* t = text_.data();
    const bool negative = t[start] == '-';
    if (negative) ++start;
    if (start >= size_ || t[start] < '0' || t[start] > '9') {
        shaped_ = false;
        return;
    }
    bool whole = true, exponent = false;
    std::size_t significant = 0;
    for (std::size_t i = start; i < size_; ++i) {
        const char c = t[i];
        if (c == '.') {
            whole = false;
        } else if (c == 'e' || c == 'E') {
            whole = false;
            exponent = true;
        } else if (!exponent && c >= '0' && c <= '9' && (significant > 0 || c != '0')) {
            ++significant;
        }
    }
    literals_.push_back(StatementLiteral{start, size_ - start, StatementLiteral::Kind::Number,
                                         whole ? known : -1,
                                         !whole && significant <= 15 ? known_real : -1});
    kinds_[place] = negative ? (whole ? 'I' : 'D') : (whole ? 'i' : 'd');
}

void Statement::text_written(std::size_t place, std::size_t start) {
    if (skeleton_->places_[place].bare ||
        !quotes_doubled(std::string_view(text_.data() + start, size_ - start)))
        shaped_ = false;
}

void Statement::put(std::size_t place, std::int64_t v) {
    const std::size_t start = size_;
    char* at = room(24);
    size_ += static_cast<std::size_t>(std::to_chars(at, at + 24, v).ptr - at);
    if (!skeleton_->places_[place].bare) return;  // digits inside a text
    constexpr std::int64_t kEighteenDigits = 999'999'999'999'999'999;
    const bool negative = v < 0;
    const std::int64_t magnitude = v >= -kEighteenDigits ? (negative ? -v : v) : -1;
    const std::size_t digits = start + (negative ? 1 : 0);
    literals_.push_back(StatementLiteral{digits, size_ - digits, StatementLiteral::Kind::Number,
                                         magnitude <= kEighteenDigits ? magnitude : -1});
    kinds_[place] = negative ? 'I' : 'i';
}

void Statement::put(std::size_t place, double v) {
    const std::size_t start = size_;
    char* at = room(Variant::kDoubleTextRoom);
    size_ += Variant::format_double(v, at);
    if (!skeleton_->places_[place].bare) return;  // digits inside a text
    // Written as its whole digits below 1e15 (format_double), so its value is known.
    const double magnitude = std::fabs(v);
    if (v == 0 || (magnitude < 1e15 && static_cast<double>(static_cast<std::int64_t>(v)) == v)) {
        const bool negative = at[0] == '-';
        const std::size_t digits = start + (negative ? 1 : 0);
        literals_.push_back(StatementLiteral{digits, size_ - digits, StatementLiteral::Kind::Number,
                                             static_cast<std::int64_t>(magnitude)});
        kinds_[place] = negative ? 'I' : 'i';
        return;
    }
    if (magnitude < 1e15) {
        // Its shortest digits with a point and no exponent (format_double): a decimal literal
        // after the sign, its value known when a double holds its digits.
        const std::size_t digits = start + (at[0] == '-' ? 1 : 0);
        // Amounts and prices have few digits: all of them, point aside, are at most 15.
        std::size_t significant = size_ - digits - 1;
        if (significant > 15) {
            significant = 0;
            for (std::size_t i = digits; i < size_; ++i) {
                const char c = text_[i];
                if (c != '.' && (significant > 0 || c != '0')) ++significant;
            }
        }
        literals_.push_back(StatementLiteral{digits, size_ - digits, StatementLiteral::Kind::Number,
                                             -1, significant <= 15 ? magnitude : -1});
        kinds_[place] = digits > start ? 'D' : 'd';
        return;
    }
    // Any other is written in the shortest form that reads back as it, perhaps with an exponent.
    number_written(place, start, -1, magnitude);
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
            break;
    }
    const std::size_t start = size_;
    append(v.to_string());
    // Anything else is no number literal; in a text it is as good as any other text.
    if (skeleton_->places_[place].bare)
        shaped_ = false;
    else
        text_written(place, start);
}

void Statement::put(std::size_t place, std::string_view v) {
    const std::size_t start = size_;
    append(v);
    if (!skeleton_->places_[place].bare) {
        text_written(place, start);
        return;
    }
    // A whole number as text (a bill kind) is that number; any other text is no literal.
    std::string_view digits = v;
    if (!digits.empty() && digits.front() == '-') digits.remove_prefix(1);
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos)
        shaped_ = false;
    else
        number_written(place, start, -1, -1);
}

void Statement::put(std::size_t place, const QuotedText& v) {
    std::string_view rest = v.text;
    for (auto at = rest.find('\''); at != std::string_view::npos; at = rest.find('\'')) {
        append(rest.substr(0, at + 1));
        append("'");
        rest.remove_prefix(at + 1);
    }
    append(rest);
    if (skeleton_->places_[place].bare) shaped_ = false;
}

void Statement::finish() {
    if (!shaped_) {
        key_.clear();
        literals_.clear();
    }
}

}  // namespace billdata::ado
