#pragma once
// Physical connections waiting for their next use, per connection key, and the schema
// catalogues read once per database: shared by the server drivers.

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "billdata/dialect/catalog.h"

namespace billdata::drivers {

// `Handle` has a `key` (std::string). Thread-safe.
template <class Handle>
class IdlePool {
  public:
    explicit IdlePool(std::size_t per_key) : per_key_(per_key) {}

    // A waiting handle of `key` that `usable` accepts (the others are dropped), or nullptr.
    template <class Usable>
    std::unique_ptr<Handle> take(const std::string& key, Usable usable) {
        std::lock_guard lock(mutex_);
        auto it = idle_.find(key);
        while (it != idle_.end() && !it->second.empty()) {
            std::unique_ptr<Handle> h = std::move(it->second.back());
            it->second.pop_back();
            if (usable(*h)) return h;
        }
        return nullptr;
    }
    // Keeps the handle for its key's next use, unless as many wait already.
    void give_back(std::unique_ptr<Handle> h) {
        std::lock_guard lock(mutex_);
        auto& list = idle_[h->key];
        if (list.size() < per_key_) list.push_back(std::move(h));
    }
    std::size_t idle_count() {
        std::lock_guard lock(mutex_);
        std::size_t n = 0;
        for (const auto& [key, list] : idle_)
            n += list.size();
        return n;
    }

  private:
    std::size_t per_key_;
    std::mutex mutex_;
    std::map<std::string, std::vector<std::unique_ptr<Handle>>> idle_;
};

// Catalogues per database, read once by the first connection of a process: every operation
// opens a connection of its own, and reading the catalogue is a round trip over every column.
// A database without the schema yet is not kept (the next connection reads it again).
class CatalogCache {
  public:
    std::shared_ptr<const dialect::Catalog> find(const std::string& key) {
        std::lock_guard lock(mutex_);
        auto it = by_key_.find(key);
        return it == by_key_.end() ? nullptr : it->second;
    }
    void keep(const std::string& key, std::shared_ptr<const dialect::Catalog> catalog) {
        if (catalog->tables().empty()) return;
        std::lock_guard lock(mutex_);
        by_key_[key] = std::move(catalog);
    }

  private:
    std::mutex mutex_;
    std::map<std::string, std::shared_ptr<const dialect::Catalog>> by_key_;
};

}  // namespace billdata::drivers
