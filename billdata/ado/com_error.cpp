#include "billdata/ado/com_error.h"

#include <string>
#include <utility>

namespace billdata::ado {

const char* err::description(std::int32_t number) {
    switch (number) {
        case kOverflow:
            return "溢出";
        case kSubscript:
            return "下标越界";
        case kTypeMismatch:
            return "类型不匹配";
        case kInvalidNull:
            return "无效使用 Null";
        case kObjectRequired:
            return "要求对象";
        case kNoCurrentRecord:
            return "BOF 或 EOF 中有一个是“真”，或者当前的记录已被删除，所需的操作要求一个当前的记录。";
        case kItemNotFound:
            return "在对应所需名称或序数的集合中，未找到项目。";
        case kObjectClosed:
            return "对象关闭时，不允许操作。";
        case kTimeout:
            return "查询超时已过期";
        default:
            return "";
    }
}

ComError::ComError(std::int32_t number, std::string description, std::string source)
    : number_(number), description_(std::move(description)), source_(std::move(source)) {}

ComError ComError::platform(std::int32_t number, std::string source) {
    return ComError(number, err::description(number), std::move(source));
}

ComError ComError::component(std::string description) {
    return ComError(err::kComponent, std::move(description));
}

ComError& ComError::attach_cleanup_failure(const ComError& cleanup) {
    return attach_cleanup_failure(std::to_string(cleanup.number()) + " " + cleanup.description());
}

ComError& ComError::attach_cleanup_failure(std::string_view text) {
    if (!cleanup_.empty()) cleanup_ += "; ";
    cleanup_ += text;
    return *this;
}

ComError& ComError::classify(ErrorClass c, int native, std::string key, bool txn_open) {
    class_ = c;
    native_ = native;
    key_ = std::move(key);
    txn_open_ = txn_open;
    return *this;
}

}  // namespace billdata::ado
