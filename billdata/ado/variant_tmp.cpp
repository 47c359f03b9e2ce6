// Stand-in for the few Variant members the embedded procedures use, until the data layer's own
// implementation is merged.
#include <cmath>
#include <cstdlib>
#include <string>

#include "billdata/ado/com_error.h"
#include "billdata/ado/variant.h"

namespace billdata::ado {

Variant Variant::null() {
    Variant v;
    v.v_ = NullTag{};
    return v;
}
Variant::Variant(std::int32_t v) : v_(v) {}
Variant::Variant(double v) : v_(v) {}
Variant::Variant(std::string v) : v_(std::move(v)) {}

VarType Variant::type() const {
    static constexpr VarType kTypes[] = {VarType::Empty,   VarType::Null,  VarType::Boolean,
                                         VarType::Integer, VarType::Long,  VarType::Double,
                                         VarType::Date,    VarType::String};
    return kTypes[v_.index()];
}

double Variant::to_double() const {
    switch (v_.index()) {
        case 0:
            return 0;
        case 1:
            throw ComError::platform(err::kInvalidNull);
        case 2:
            return std::get<bool>(v_) ? -1 : 0;
        case 3:
            return std::get<std::int16_t>(v_);
        case 4:
            return std::get<std::int32_t>(v_);
        case 5:
            return std::get<double>(v_);
        case 7: {
            const std::string& s = std::get<std::string>(v_);
            char* end = nullptr;
            double d = std::strtod(s.c_str(), &end);
            if (s.empty() || *end != '\0') throw ComError::platform(err::kTypeMismatch);
            return d;
        }
        default:
            throw ComError::platform(err::kTypeMismatch);
    }
}

std::int32_t Variant::to_int32() const {
    double d = std::nearbyint(to_double());
    if (d < -2147483648.0 || d > 2147483647.0) throw ComError::platform(err::kOverflow);
    return static_cast<std::int32_t>(d);
}

}  // namespace billdata::ado
