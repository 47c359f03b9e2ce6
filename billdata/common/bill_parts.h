#pragma once
// Small pieces every bill class uses to build its statements and get its connection.

#include <exception>
#include <memory>
#include <string>

#include "billdata/ado/ado.h"
#include "billdata/common/session.h"

namespace billdata::common {

// The connection an operation works on. Given the caller's connection it uses that one and
// never closes it: the connection and any transaction on it stay the caller's. Otherwise it opens
// one of the operation's own from the session string (or the given string) and closes it on every
// way out; closing rolls back a transaction still open, so a failed operation leaves nothing half
// done. A close that fails (work committed in autocommit that cannot be made durable) is raised
// when the operation itself succeeded; when the operation failed, its own error is the one that
// reaches the caller.
class OwnConnection {
  public:
    explicit OwnConnection(std::shared_ptr<ado::Connection> callers = nullptr)
        : cn_(std::move(callers)), own_(!cn_) {
        if (own_) open(GetPromptString());
    }
    explicit OwnConnection(const std::string& connection_string) : own_(true) {
        open(connection_string);
    }
    ~OwnConnection() noexcept(false) {
        if (!own_) return;
        try {
            cn_->Close();
        } catch (...) {
            if (std::uncaught_exceptions() == uncaught_) throw;
        }
    }
    OwnConnection(const OwnConnection&) = delete;
    OwnConnection& operator=(const OwnConnection&) = delete;

    const std::shared_ptr<ado::Connection>& get() const { return cn_; }
    // Closes an own connection now, before the operation's end, raising a failure to close.
    void close() {
        if (own_) cn_->Close();
    }
    // True when the connection is the operation's own rather than the caller's.
    bool owned() const { return own_; }

  private:
    void open(const std::string& connection_string) {
        cn_ = ado::Connection::create();
        cn_->Open(connection_string);
    }

    std::shared_ptr<ado::Connection> cn_;
    bool own_;
    int uncaught_ = std::uncaught_exceptions();
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

// A caller's value that goes into a statement as a number: its own text, once it is known to be
// one, so that a null or a word is refused before anything is written.
inline std::string sql_number(const ado::Variant& value) {
    if (value.is_empty() || value.is_null()) throw ado::ComError::platform(ado::err::kInvalidNull);
    (void)value.to_double();
    return value.to_string();
}

}  // namespace billdata::common
