// Name-keyed factory used for kernels, inference parameters and records.
// Not locked: fill a registry before threads use it, then only read it.
#pragma once

#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace tarn {
namespace runtime {

template <typename T>
class ClassRegistry {
 public:
  using Creator = std::function<T()>;

  // Stores the creator under `name`; an existing entry is replaced only when
  // `overwrite` is true.
  void Register(const std::string& name, Creator creator, bool overwrite) {
    auto it = creators_.find(name);
    if (it == creators_.end()) {
      creators_.emplace(name, std::move(creator));
    } else if (overwrite) {
      it->second = std::move(creator);
    }
  }

  // Calls the creator stored under `name`; an unknown name gives an empty T.
  // An empty stored creator throws std::bad_function_call.
  T Create(const std::string& name) const {
    auto it = creators_.find(name);
    if (it == creators_.end()) return T();
    return it->second();
  }

  bool Has(const std::string& name) const { return creators_.count(name) != 0; }

  std::vector<std::string> GetKeys() const {
    std::vector<std::string> keys;
    keys.reserve(creators_.size());
    for (const auto& entry : creators_) keys.push_back(entry.first);
    return keys;
  }

  void Unregister(const std::string& name) { creators_.erase(name); }

  size_t Size() const { return creators_.size(); }

 private:
  std::unordered_map<std::string, Creator> creators_;
};

}  // namespace runtime
}  // namespace tarn
