#pragma once
// The one error type that crosses the component boundary.

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace billdata::ado {

// Error numbers used by the component and the data layer. The numbers are those the front end
// already knows from the platform, so they are kept as they are.
namespace err {
inline constexpr std::int32_t kComponent = -2147220503;  // vbObjectError + 1001 (0x800403E9)
inline constexpr std::int32_t kOverflow = 6;             // "溢出"
inline constexpr std::int32_t kSubscript = 9;            // "下标越界"
inline constexpr std::int32_t kTypeMismatch = 13;        // "类型不匹配"
inline constexpr std::int32_t kInvalidNull = 94;         // "无效使用 Null"
inline constexpr std::int32_t kObjectRequired = 424;     // "要求对象"
inline constexpr std::int32_t kNoCurrentRecord = 3021;   // reading a field at BOF/EOF
inline constexpr std::int32_t kItemNotFound = 3265;      // no such field / parameter
inline constexpr std::int32_t kObjectClosed = 3704;      // operation on a closed object
inline constexpr std::int32_t kDatabase = -2147217900;   // 0x80040E14: statement refused or failed
inline constexpr std::int32_t kIntegrity = -2147217873;  // 0x80040E2F: constraint violated
inline constexpr std::int32_t kLockTimeout = -2147217871;  // 0x80040E31: lock wait gave up
// 0x80040E31 also: a statement outlived its command timeout ("查询超时已过期"). The number is the
// platform's for both; the class (ErrorClass::Timeout against ErrorClass::Lock) tells them apart.
inline constexpr std::int32_t kTimeout = kLockTimeout;
inline constexpr std::int32_t kConnection = -2147467259;  // 0x80004005: cannot open / bad string

// The platform's own descriptions of its error numbers (a Chinese system's texts).
const char* description(std::int32_t number);
}  // namespace err

// How the driver classified a database error, from the engine's native code (never the text).
// Timeout: the statement outlived its command timeout and was stopped (never retried: running it
// again would take as long).
enum class ErrorClass { None, Lock, DuplicateKey, Timeout, Other };

// An error raised by the component, the data layer or the platform conversions.
// `number` is a signed 32-bit error number, `description` UTF-8 text, `source` the raising
// object's name. Database errors also carry their classification, the engine's native code,
// the key that was violated ("ICStockBill.FInterID" style, columns comma separated) and whether
// the transaction on the connection was still open after the error.
class ComError : public std::exception {
  public:
    ComError() = default;
    ComError(std::int32_t number, std::string description, std::string source = {});

    // A platform error with its standard description (err::description(number)).
    static ComError platform(std::int32_t number, std::string source = {});
    // The component's own refusal: number 0x800403E9 with the given message.
    static ComError component(std::string description);

    std::int32_t number() const noexcept { return number_; }
    const std::string& description() const noexcept { return description_; }
    const std::string& source() const noexcept { return source_; }
    const char* what() const noexcept override { return description_.c_str(); }

    ErrorClass error_class() const noexcept { return class_; }
    int native_code() const noexcept { return native_; }
    const std::string& violated_key() const noexcept { return key_; }
    bool transaction_open() const noexcept { return txn_open_; }

    ComError& classify(ErrorClass c, int native, std::string key, bool txn_open);

    // A clean-up that failed after this error (the rollback of the operation's transaction):
    // its number and description, so that the caller learns that the work may not have been
    // undone. The error itself stays the one that stopped the operation. Empty when none.
    const std::string& cleanup_failure() const noexcept { return cleanup_; }
    ComError& attach_cleanup_failure(const ComError& cleanup);
    ComError& attach_cleanup_failure(std::string_view text);

  private:
    std::int32_t number_ = 0;
    std::string description_;
    std::string source_;
    ErrorClass class_ = ErrorClass::None;
    int native_ = 0;
    std::string key_;
    bool txn_open_ = false;
    std::string cleanup_;
};

}  // namespace billdata::ado
