// `billdata call` and `billdata batch`: the component's classes called by name with JSON.

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <iostream>
#include <string>

#include "billdata/ado/ado.h"
#include "billdata/common/session.h"
#include "billdata/server/dispatch.h"
#include "billdata/server/json_call.h"
#include "billdata/util/text.h"
#include "cli.h"
#include "output.h"

namespace billdata::cli {

namespace {

using ado::ComError;
using server::CallOutcome;
using server::Value;

ComError bad_request(const std::string& detail) {
    return server::err::error(server::err::kInvalidCall, detail);
}

// The session as an Init sets it: the connection string as given, the year and period given, or
// else the database's current ones.
void init_session_from(const std::string& db, int year, int period) {
    if (year == 0 || period == 0) {
        auto cn = ado::Connection::create();
        cn->Open(db);
        auto rs = cn->Execute(
            "select FKey,FValue from t_SystemProfile where FKey in ('CurrentYear','CurrentPeriod')");
        for (; !rs->Eof(); rs->MoveNext()) {
            const std::string key = rs->Fields("FKey").Value().to_string();
            const ado::Variant& value = rs->Fields("FValue").Value();
            if (year == 0 && key == "CurrentYear") year = value.to_int16();
            if (period == 0 && key == "CurrentPeriod") period = value.to_int16();
        }
        rs->Close();
        cn->Close();
    }
    common::init_session(db, ado::Variant(year).to_int16(), ado::Variant(period).to_int16());
}

// "Class.Method" → a new object of the class and the method's name.
std::unique_ptr<server::Object> object_for(const std::string& target, std::string& method) {
    const auto dot = target.find('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == target.size()) {
        throw bad_request("a call names Class.Method, e.g. PosData.GetBillList; got \"" +
                          util::excerpt(target) + "\"");
    }
    method = target.substr(dot + 1);
    return server::Registry::instance().create(std::string(server::Registry::kProgIdPrefix) +
                                               target.substr(0, dot));
}

CallOutcome call(const std::string& target, const std::string& args_json) {
    std::string method;
    auto object = object_for(target, method);
    return server::call_json(*object, method, args_json);
}

CallOutcome call(const std::string& target, const server::JsonDoc& doc, std::uint32_t args) {
    std::string method;
    auto object = object_for(target, method);
    return server::call_json_value(*object, method, doc, args);
}

// A value shown to a person: record sets as tables (or CSV), scalars as the platform's text.
void print_value(std::ostream& out, const std::string& label, const Value& value, Format format) {
    if (value.kind() == Value::Kind::Recordset && value.recordset() &&
        value.recordset()->State() == ado::adStateOpen) {
        out << label << ":\n";
        print_recordset(out, *value.recordset(), format);
        return;
    }
    out << label << ": ";
    switch (value.kind()) {
        case Value::Kind::Variant:
            out << (value.variant().is_null() ? "NULL" : value.variant().to_string());
            break;
        case Value::Kind::IdArray:
            out << server::to_json(value);
            break;
        default:
            out << "Nothing";
            break;
    }
    out << "\n";
}

void print_readable(std::ostream& out, const CallOutcome& outcome, Format format) {
    if (outcome.result_type != server::Type::Void)
        print_value(out, "result", outcome.result, format);
    for (const auto& [name, value] : outcome.out)
        print_value(out, name, value, format);
    if (outcome.result_type == server::Type::Void && outcome.out.empty()) out << "done\n";
}

}  // namespace

int run_call(const std::string& db, int year, int period, const std::string& format,
             const std::string& target, const std::string& args_json) {
    const bool json = format == "json" || (format.empty() && !::isatty(STDOUT_FILENO));
    try {
        init_session_from(database_from(db), year, period);
        CallOutcome outcome = call(target, args_json);
        if (json)
            std::cout << server::outcome_json(outcome) << "\n";
        else
            print_readable(std::cout, outcome, parse_format(format));
        return 0;
    } catch (const ComError& e) {
        if (json)
            std::cout << server::error_json(e) << "\n";
        else
            std::cout << "error " << e.number() << ": " << e.description() << "\n";
        if (!json && !e.cleanup_failure().empty())
            std::cout << "clean-up failed too: " << e.cleanup_failure() << "\n";
        return 1;
    }
}

namespace {

// One line of a batch: {"call": "Class.Method", "args": {…}} → the answer line. `doc` is the
// reader every line of the batch is read into.
std::string run_line(const std::string& line, server::JsonDoc& doc, bool& failed) {
    using Kind = server::JsonDoc::Kind;
    failed = false;
    try {
        server::check_json_text(line, "the batch line");
        if (!doc.parse(line) || doc.node(0).kind != Kind::Object)
            throw bad_request(
                "a batch line is a JSON object {\"call\": \"Class.Method\", \"args\": {...}}");
        std::uint32_t target = server::JsonDoc::npos, args = server::JsonDoc::npos;
        for (const server::JsonDoc::Member& m : doc.members(0)) {
            if (m.name == "call")
                target = m.value;
            else if (m.name == "args")
                args = m.value;
            else
                throw bad_request("unknown member \"" + util::excerpt(m.name) +
                                  "\" (a batch line has \"call\" and \"args\")");
        }
        if (target == server::JsonDoc::npos || doc.node(target).kind != Kind::String)
            throw bad_request("a batch line needs \"call\": \"Class.Method\"");
        // The arguments as read with the line (which passed the text checks as a whole).
        return server::outcome_json(call(std::string(doc.node(target).text), doc, args));
    } catch (const ComError& e) {
        failed = true;
        return server::error_json(e);
    }
}

// Progress for long batches: after two seconds, a line on standard error every two seconds
// (rewritten in place on a terminal).
class Progress {
  public:
    Progress() : start_(Clock::now()), next_(start_ + std::chrono::seconds(2)) {}
    void tick(long calls, long failed) {
        if (Clock::now() < next_) return;
        next_ = Clock::now() + std::chrono::seconds(2);
        show(calls, failed);
    }
    void finish(long calls, long failed) {
        if (!shown_) return;
        show(calls, failed);
        if (tty_) std::cerr << "\n";
    }

  private:
    using Clock = std::chrono::steady_clock;
    void show(long calls, long failed) {
        shown_ = true;
        std::cerr << (tty_ ? "\r" : "") << "billdata batch: " << calls << " calls, " << failed
                  << " failed" << (tty_ ? "" : "\n") << std::flush;
    }
    Clock::time_point start_, next_;
    bool tty_ = ::isatty(STDERR_FILENO) != 0;
    bool shown_ = false;
};

// Lines of standard input, read in large blocks: a line is handed out as soon as it is whole,
// so a front end that writes a line and waits for its answer is answered at once.
class LineReader {
  public:
    bool next(std::string& line) {
        for (;;) {
            const auto end = buffer_.find('\n', start_);
            if (end != std::string::npos) {
                line.assign(buffer_, start_, end - start_);
                start_ = end + 1;
                return true;
            }
            buffer_.erase(0, start_);
            start_ = 0;
            if (eof_) {
                if (buffer_.empty()) return false;
                line.swap(buffer_);
                buffer_.clear();
                return true;
            }
            char block[1 << 16];
            const ssize_t n = ::read(STDIN_FILENO, block, sizeof block);
            if (n > 0)
                buffer_.append(block, static_cast<std::size_t>(n));
            else if (n == 0 || errno != EINTR)
                eof_ = true;  // a read error ends the input as its end does
        }
    }

  private:
    std::string buffer_;
    std::size_t start_ = 0;
    bool eof_ = false;
};

}  // namespace

int run_batch(const std::string& db) {
    if (!db.empty()) init_session_from(database_from(db), 0, 0);
    long calls = 0, failures = 0;
    Progress progress;
    LineReader input;
    server::JsonDoc doc;
    std::string line;
    while (input.next(line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.find_first_not_of(" \t") == std::string::npos) continue;
        bool failed = false;
        std::cout << run_line(line, doc, failed) << "\n";
        if (!output_written()) return kExitOutputLost;
        ++calls;
        if (failed) ++failures;
        progress.tick(calls, failures);
    }
    progress.finish(calls, failures);
    return failures ? 1 : 0;
}

}  // namespace billdata::cli
