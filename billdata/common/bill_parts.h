#pragma once
// Small pieces every bill class uses to build its statements and get its connection.

#include <memory>
#include <string>

#include "billdata/ado/ado.h"
#include "billdata/common/session.h"

namespace billdata::common {

// A connection of the operation's own, opened from the session connection string.
inline std::shared_ptr<ado::Connection> open_own_connection() {
    auto cn = ado::Connection::create();
    cn->Open(GetPromptString());
    return cn;
}

// A connection of the operation's own, closed on every way out; closing rolls back a transaction
// that is still open, so a failed save or close leaves nothing half done.
class OwnConnection {
  public:
    OwnConnection() : OwnConnection(GetPromptString()) {}
    explicit OwnConnection(const std::string& connection_string) : cn_(ado::Connection::create()) {
        cn_->Open(connection_string);
    }
    ~OwnConnection() {
        try {
            cn_->Close();
        } catch (...) {
            // Closing never reports: the operation's own error is the one that matters.
        }
    }
    OwnConnection(const OwnConnection&) = delete;
    OwnConnection& operator=(const OwnConnection&) = delete;

    const std::shared_ptr<ado::Connection>& get() const { return cn_; }

  private:
    std::shared_ptr<ado::Connection> cn_;
};

// A record set argument that the caller left empty is the platform's "object required".
inline ado::Recordset& require_recordset(const std::shared_ptr<ado::Recordset>& rs) {
    if (!rs) throw ado::ComError::platform(ado::err::kObjectRequired);
    return *rs;
}

// A field of the current row as a statement writes it (the platform's text conversion).
inline std::string field_text(ado::Recordset& rs, const char* name) {
    return rs.Fields(name).Value().to_string();
}

// A text as a statement writes it between single quotes: every quote in it doubled, so that
// "O'Brien" is stored as it is instead of ending the literal early. A text without quotes comes
// back as it is, so such statements stay byte for byte what they always were.
inline std::string sql_text(std::string text) {
    for (auto at = text.find('\''); at != std::string::npos; at = text.find('\'', at + 2))
        text.insert(at, 1, '\'');
    return text;
}

// A double as a statement writes it: invariant, shortest form that reads back exactly.
inline std::string sql_number(double v) {
    return ado::Variant::format_double(v);
}

}  // namespace billdata::common
