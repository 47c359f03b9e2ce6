#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <new>

#include "billdata/ado/version.h"
#include "billdata/server/billdata_c.h"
#include "billdata/server/dispatch.h"
#include "billdata/server/json_call.h"

struct billdata_object {
    std::unique_ptr<billdata::server::Object> object;
};

namespace {

using billdata::ado::ComError;

ComError& last_error() {
    thread_local ComError error;
    return error;
}

void clear_error() {
    last_error() = ComError();
}

// Runs `fn`, turning every exception into this thread's last error; nothing crosses into C.
template <class Fn>
bool capture(Fn&& fn) {
    clear_error();
    try {
        fn();
        return true;
    } catch (const ComError& e) {
        last_error() = e;
    } catch (const std::bad_alloc&) {
        last_error() = ComError(7, "内存不足");
    } catch (const std::exception& e) {
        last_error() = billdata::server::err::error(billdata::server::err::kInvalidCall, e.what());
    }
    return false;
}

}  // namespace

extern "C" {

billdata_object* billdata_create(const char* prog_id) {
    billdata_object* result = nullptr;
    capture([&] {
        auto object = billdata::server::Registry::instance().create(prog_id ? prog_id : "");
        result = new billdata_object{std::move(object)};
    });
    return result;
}

int billdata_call(billdata_object* object, const char* method, const char* args_json,
                  char** out_json) {
    if (out_json) *out_json = nullptr;
    bool ok = capture([&] {
        if (!object || !method || !out_json) {
            throw billdata::server::err::error(billdata::server::err::kInvalidCall,
                                               "object, method and out_json are required");
        }
        auto outcome =
            billdata::server::call_json(*object->object, method, args_json ? args_json : "");
        std::string text = billdata::server::outcome_json(outcome);
        char* copy = static_cast<char*>(std::malloc(text.size() + 1));
        if (!copy) throw std::bad_alloc();
        std::memcpy(copy, text.c_str(), text.size() + 1);
        *out_json = copy;
    });
    return ok ? 0 : -1;
}

void billdata_free(char* text) {
    std::free(text);
}

int32_t billdata_last_error_number(void) {
    return last_error().number();
}

const char* billdata_last_error_description(void) {
    return last_error().description().c_str();
}

const char* billdata_last_error_cleanup(void) {
    return last_error().cleanup_failure().c_str();
}

const char* billdata_version(void) {
    static const std::string text = billdata::version();
    return text.c_str();
}

const char* billdata_version_text(void) {
    static const std::string text = billdata::version_text();
    return text.c_str();
}

void billdata_release(billdata_object* object) {
    delete object;
}

}  // extern "C"
