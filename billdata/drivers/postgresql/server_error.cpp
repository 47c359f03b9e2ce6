#include "billdata/drivers/postgresql/server_error.h"

#include <cstring>

namespace billdata::drivers::postgresql {

namespace {

using ado::ComError;
using ado::ErrorClass;
namespace err = ado::err;

// SQLSTATE as the number the error carries as its native code: the five characters in base 36,
// so that each state has its own number and the text can be read back from it.
int native_number(const char* state) {
    int n = 0;
    for (int i = 0; i < 5 && state[i]; ++i) {
        const char c = state[i];
        const int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'Z' ? c - 'A' + 10 : 0;
        n = n * 36 + digit;
    }
    return n;
}

}  // namespace

int dialect_number(std::string_view state) {
    if (state.size() == 5 && state[0] == 'B') {
        int n = 0;
        for (char c : state.substr(1)) {
            if (c < '0' || c > '9') return 0;
            n = n * 10 + (c - '0');
        }
        return n;
    }
    if (state == "21000") return 512;   // a subquery used as a value yielded more rows
    if (state == "22003") return 8115;  // a number out of its type's range
    if (state == "22012") return 8134;  // a division (or modulo) by zero
    return 0;
}

bool transaction_lost(std::string_view state) {
    return state == "40P01" || state == "40001";
}

bool transaction_lost(int native_code) {
    return native_code == native_number("40P01") || native_code == native_number("40001");
}

bool connection_lost(std::string_view state) {
    // Class 08 (connection exception), and the server shutting down or ending the session.
    return state.substr(0, 2) == "08" || state == "57P01" || state == "57P02" || state == "57P03";
}

ComError server_error(std::string_view state, std::string message, bool transaction_open,
                      std::string violated_key) {
    char code[6] = {0};
    std::memcpy(code, state.data(), state.size() < 5 ? state.size() : 5);
    const int native = native_number(code);
    while (!message.empty() && (message.back() == '\n' || message.back() == ' '))
        message.pop_back();
    if (state == "23505")
        return ComError(err::kIntegrity, std::move(message))
            .classify(ErrorClass::DuplicateKey, native, std::move(violated_key), transaction_open);
    if (state.substr(0, 2) == "23")
        return ComError(err::kIntegrity, std::move(message))
            .classify(ErrorClass::Other, native, {}, transaction_open);
    if (transaction_lost(state) || state == "55P03")
        return ComError(err::kLockTimeout, std::move(message))
            .classify(ErrorClass::Lock, native, {}, transaction_open);
    if (const int number = dialect_number(state)) {
        if (number == 512) {
            message =
                "子查询返回的值不止一个。当子查询跟随在 =、!=、<、<=、>、>= "
                "之后，或子查询用作表达式时，这种情况是不允许的。";
        } else if (number == 8134) {
            message = "遇到以零作除数错误。";
        } else if (number == 8115 && message.rfind("numeric field overflow", 0) == 0) {
            // A number stored into a decimal column beyond the column's precision.
            message = "将 numeric 转换为数据类型 numeric 时出现算术溢出错误。";
        }
        return ComError(err::kDatabase, std::move(message))
            .classify(ErrorClass::Other, number, {}, transaction_open);
    }
    return ComError(err::kDatabase, std::move(message))
        .classify(ErrorClass::Other, native, {}, transaction_open);
}

}  // namespace billdata::drivers::postgresql
