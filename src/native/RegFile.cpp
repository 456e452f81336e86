// RegFile.cpp - the key tree of the .reg text format and its statements.
// Part of qvbase, the QVKernel foundation class library.
#include "native/RegFile.h"

#include <algorithm>
#include <memory>
#include <cstdint>
#include <unordered_map>
#include <unordered_set>

namespace qvbase {
namespace native {
namespace regfile {

namespace {

unsigned char FoldCase(unsigned char c) {
  return (c >= 'a' && c <= 'z') ? static_cast<unsigned char>(c - 'a' + 'A') : c;
}

} // namespace

const char* RootName(Root root) {
  return root == Root::kLocalMachine ? "HKEY_LOCAL_MACHINE" : "HKEY_CURRENT_USER";
}

bool ParseRootName(std::string_view text, Root* root) {
  if (NamesEqual(text, "HKEY_LOCAL_MACHINE") || NamesEqual(text, "HKLM")) {
    *root = Root::kLocalMachine;
    return true;
  }
  if (NamesEqual(text, "HKEY_CURRENT_USER") || NamesEqual(text, "HKCU")) {
    *root = Root::kCurrentUser;
    return true;
  }
  return false;
}

bool NamesEqual(std::string_view a, std::string_view b) {
  if (a.size() != b.size())
    return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (FoldCase(static_cast<unsigned char>(a[i])) != FoldCase(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}

bool NameLess(std::string_view a, std::string_view b) {
  std::size_t n = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < n; ++i) {
    unsigned char x = FoldCase(static_cast<unsigned char>(a[i]));
    unsigned char y = FoldCase(static_cast<unsigned char>(b[i]));
    if (x != y)
      return x < y;
  }
  return a.size() < b.size();
}

bool SplitKeyPath(std::string_view path, std::vector<std::string>* names) {
  names->clear();
  if (!path.empty() && path.back() == '\\')
    path.remove_suffix(1);
  if (path.empty())
    return true;
  names->reserve(static_cast<std::size_t>(std::count(path.begin(), path.end(), '\\')) + 1);
  std::size_t pos = 0;
  while (true) {
    std::size_t slash = path.find('\\', pos);
    std::string_view name =
        path.substr(pos, slash == std::string_view::npos ? std::string_view::npos : slash - pos);
    if (name.empty() || name.size() > kMaxKeyNameLength)
      return false;
    for (char c : name)
      if (static_cast<unsigned char>(c) < 0x20)
        return false;
    if (names->size() == kMaxKeyDepth)
      return false;
    names->emplace_back(name);
    if (slash == std::string_view::npos)
      return true;
    pos = slash + 1;
  }
}

std::string QuotedForMessage(std::string_view text) {
  if (text.size() <= kQuotedLength)
    return "\"" + std::string(text) + "\"";
  return "\"" + std::string(text.substr(0, kQuotedLength)) + "...\" (" +
         std::to_string(text.size()) + " bytes)";
}

Key* Key::FindSubKey(std::string_view subName) const {
  auto it = std::lower_bound(
      subKeys.begin(), subKeys.end(), subName,
      [](const std::unique_ptr<Key>& k, std::string_view n) { return NameLess(k->name, n); });
  if (it != subKeys.end() && NamesEqual((*it)->name, subName))
    return it->get();
  return nullptr;
}

Key* Key::AddSubKey(std::string_view subName, bool* created) {
  auto it = std::lower_bound(
      subKeys.begin(), subKeys.end(), subName,
      [](const std::unique_ptr<Key>& k, std::string_view n) { return NameLess(k->name, n); });
  if (it != subKeys.end() && NamesEqual((*it)->name, subName)) {
    if (created)
      *created = false;
    return it->get();
  }
  auto key = std::make_unique<Key>();
  key->name = std::string(subName);
  Key* raw = key.get();
  subKeys.insert(it, std::move(key));
  if (created)
    *created = true;
  return raw;
}

bool Key::RemoveSubKey(std::string_view subName) {
  for (auto it = subKeys.begin(); it != subKeys.end(); ++it) {
    if (NamesEqual((*it)->name, subName)) {
      subKeys.erase(it);
      return true;
    }
  }
  return false;
}

const Value* Key::FindValue(std::string_view valueName) const {
  for (const Value& v : values)
    if (NamesEqual(v.name, valueName))
      return &v;
  return nullptr;
}

void Key::SetValue(std::string_view valueName, DWORD type, std::vector<BYTE> data) {
  for (Value& v : values) {
    if (NamesEqual(v.name, valueName)) {
      v.type = type;
      v.data = std::move(data);
      return;
    }
  }
  Value v;
  v.name = std::string(valueName);
  v.type = type;
  v.data = std::move(data);
  values.push_back(std::move(v));
}

bool Key::RemoveValue(std::string_view valueName) {
  for (auto it = values.begin(); it != values.end(); ++it) {
    if (NamesEqual(it->name, valueName)) {
      values.erase(it);
      return true;
    }
  }
  return false;
}

Key* Key::Find(const std::vector<std::string>& names) {
  return const_cast<Key*>(static_cast<const Key*>(this)->Find(names));
}

const Key* Key::Find(const std::vector<std::string>& names) const {
  const Key* key = this;
  for (const std::string& n : names) {
    key = key->FindSubKey(n);
    if (!key)
      return nullptr;
  }
  return key;
}

Tree::Tree() {
  roots[0].name = RootName(Root::kLocalMachine);
  roots[1].name = RootName(Root::kCurrentUser);
}

namespace {

// A hash of a name as NamesEqual compares it, within one parent: names that
// compare equal hash equal.
std::size_t NameHash(const void* parent, std::string_view name) {
  std::uint64_t h = 1469598103934665603ull ^ reinterpret_cast<std::uintptr_t>(parent);
  for (char c : name) {
    h ^= FoldCase(static_cast<unsigned char>(c));
    h *= 1099511628211ull;
  }
  return static_cast<std::size_t>(h ^ (h >> 29));
}

// Applies statements in time linear in their number, however many values or
// sub-keys one key gets. A key with a few values (or sub-keys) has them
// searched one by one; once it has more, they are found through a hash
// table keyed by (key, folded name). New sub-keys are appended and each
// key's sub-keys sorted once at the end; values deleted from a key with a
// table are marked and dropped at the end, so that what stays keeps its
// order. Statements of one key, or of neighbouring keys, follow one another
// in a file: the path of the last key is kept, and a statement walks only
// the part of its path that differs.
class Applier {
public:
  Applier(Tree* tree, std::size_t statements) : m_tree(tree) {
    m_values.reserve(statements);
    m_subKeys.reserve(statements);
  }

  void Run(const std::vector<Entry>& entries) {
    for (const Entry& e : entries) {
      if (e.kind == Entry::kDeleteKey) {
        DeleteKey(e);
        continue;
      }
      Key* key = KeyOf(e);
      if (e.kind == Entry::kValue)
        SetValue(key, e);
      else if (e.kind == Entry::kDeleteValue)
        RemoveValue(key, e.name);
    }
    Finish();
  }

private:
  // Up to this many values or sub-keys, a key is searched one by one.
  static constexpr std::size_t kSearchedOneByOne = 8;

  // ---- sub-keys

  Key* FindSubKey(Key* parent, std::string_view name) {
    if (m_subKeysHashed.count(parent) == 0) {
      for (const auto& sub : parent->subKeys)
        if (sub && NamesEqual(sub->name, name))
          return sub.get();
      return nullptr;
    }
    auto range = m_subKeys.equal_range(NameHash(parent, name));
    for (auto it = range.first; it != range.second; ++it)
      if (it->second.first == parent && NamesEqual(it->second.second->name, name))
        return it->second.second;
    return nullptr;
  }

  Key* AddSubKey(Key* parent, const std::string& name) {
    if (Key* found = FindSubKey(parent, name))
      return found;
    auto key = std::make_unique<Key>();
    key->name = name;
    Key* raw = key.get();
    parent->subKeys.push_back(std::move(key));
    m_unsorted.insert(parent);
    if (m_subKeysHashed.count(parent))
      m_subKeys.emplace(NameHash(parent, name), std::make_pair(parent, raw));
    else if (parent->subKeys.size() > kSearchedOneByOne)
      HashSubKeys(parent);
    return raw;
  }

  void HashSubKeys(Key* parent) {
    m_subKeysHashed.insert(parent);
    for (const auto& sub : parent->subKeys)
      if (sub)
        m_subKeys.emplace(NameHash(parent, sub->name), std::make_pair(parent, sub.get()));
  }

  void UnhashSubKey(Key* parent, Key* sub) {
    if (!m_subKeysHashed.count(parent))
      return;
    auto range = m_subKeys.equal_range(NameHash(parent, sub->name));
    for (auto it = range.first; it != range.second; ++it) {
      if (it->second.second == sub) {
        m_subKeys.erase(it);
        return;
      }
    }
  }

  // The key a statement names, created with every key above it.
  Key* KeyOf(const Entry& e) {
    std::size_t same = 0;
    if (e.root == m_lastRoot)
      while (same < e.path.size() && same < m_lastPath.size() && e.path[same] == m_lastPath[same])
        ++same;
    m_lastPath.resize(same);
    m_lastKeys.resize(same);
    Key* key = same ? m_lastKeys.back() : &m_tree->RootKey(e.root);
    for (std::size_t i = same; i < e.path.size(); ++i) {
      key = AddSubKey(key, e.path[i]);
      m_lastPath.push_back(e.path[i]);
      m_lastKeys.push_back(key);
    }
    m_lastRoot = e.root;
    return key;
  }

  // ---- values

  // The position of a value of `key`; values.size() when there is none.
  std::size_t FindValue(Key* key, std::string_view name) {
    if (m_valuesHashed.count(key) == 0) {
      for (std::size_t i = 0; i < key->values.size(); ++i)
        if (NamesEqual(key->values[i].name, name))
          return i;
      return key->values.size();
    }
    auto it = FindHashedValue(key, name);
    return it == m_values.end() ? key->values.size() : it->second.second;
  }

  using HashedValues = std::unordered_multimap<std::size_t, std::pair<Key*, std::size_t>>;

  HashedValues::iterator FindHashedValue(Key* key, std::string_view name) {
    auto range = m_values.equal_range(NameHash(key, name));
    for (auto it = range.first; it != range.second; ++it)
      if (it->second.first == key && NamesEqual(key->values[it->second.second].name, name))
        return it;
    return m_values.end();
  }

  void HashValues(Key* key) {
    m_valuesHashed.insert(key);
    const std::vector<bool>* gone = nullptr;
    if (auto found = m_valueGone.find(key); found != m_valueGone.end())
      gone = &found->second;
    for (std::size_t i = 0; i < key->values.size(); ++i)
      if (!gone || i >= gone->size() || !(*gone)[i])
        m_values.emplace(NameHash(key, key->values[i].name), std::make_pair(key, i));
  }

  void SetValue(Key* key, const Entry& e) {
    const std::size_t at = FindValue(key, e.name);
    if (at < key->values.size()) {
      Value& v = key->values[at];
      v.type = e.type;
      v.data = e.data;
      return;
    }
    Value v;
    v.name = e.name;
    v.type = e.type;
    v.data = e.data;
    key->values.push_back(std::move(v));
    if (m_valuesHashed.count(key))
      m_values.emplace(NameHash(key, e.name), std::make_pair(key, key->values.size() - 1));
    else if (key->values.size() > kSearchedOneByOne)
      HashValues(key);
  }

  void RemoveValue(Key* key, const std::string& name) {
    if (m_valuesHashed.count(key) == 0) {
      // Searched one by one: removed at once, and a few values move up.
      const std::size_t at = FindValue(key, name);
      if (at < key->values.size())
        key->values.erase(key->values.begin() + static_cast<std::ptrdiff_t>(at));
      return;
    }
    auto found = FindHashedValue(key, name);
    if (found == m_values.end())
      return;
    std::vector<bool>& gone = m_valueGone[key];
    gone.resize(key->values.size(), false);
    gone[found->second.second] = true;
    m_values.erase(found);
  }

  // ---- deletion

  void DeleteKey(const Entry& e) {
    Key* parent = &m_tree->RootKey(e.root);
    for (std::size_t i = 0; parent && i + 1 < e.path.size(); ++i)
      parent = FindSubKey(parent, e.path[i]);
    if (!parent)
      return;
    Key* doomed = FindSubKey(parent, e.path.back());
    if (!doomed)
      return;
    // The tables forget it and everything below it before it goes.
    Forget(doomed);
    UnhashSubKey(parent, doomed);
    for (auto& sub : parent->subKeys)
      if (sub.get() == doomed)
        sub.reset();
    m_subKeysGone.insert(parent);
    m_lastPath.clear();
    m_lastKeys.clear();
  }

  void Forget(Key* key) {
    for (auto& sub : key->subKeys) {
      if (!sub)
        continue;
      Forget(sub.get());
      UnhashSubKey(key, sub.get());
    }
    if (m_valuesHashed.count(key))
      for (std::size_t i = 0; i < key->values.size(); ++i)
        if (auto it = FindHashedValue(key, key->values[i].name);
            it != m_values.end() && it->second.second == i)
          m_values.erase(it);
    m_valuesHashed.erase(key);
    m_subKeysHashed.erase(key);
    m_valueGone.erase(key);
    m_unsorted.erase(key);
    m_subKeysGone.erase(key);
  }

  // Drops what was marked and puts appended sub-keys in their sorted place.
  void Finish() {
    for (auto& [key, gone] : m_valueGone) {
      std::size_t kept = 0;
      for (std::size_t i = 0; i < key->values.size(); ++i) {
        if (i < gone.size() && gone[i])
          continue;
        if (kept != i)
          key->values[kept] = std::move(key->values[i]);
        ++kept;
      }
      key->values.resize(kept);
    }
    for (Key* key : m_subKeysGone)
      key->subKeys.erase(std::remove(key->subKeys.begin(), key->subKeys.end(), nullptr),
                         key->subKeys.end());
    for (Key* key : m_unsorted)
      std::stable_sort(key->subKeys.begin(), key->subKeys.end(),
                       [](const std::unique_ptr<Key>& a, const std::unique_ptr<Key>& b) {
                         return NameLess(a->name, b->name);
                       });
  }

  Tree* m_tree;
  // (key, folded name) -> the value's position in the key / the sub-key, for
  // the keys with more than a few.
  HashedValues m_values;
  std::unordered_multimap<std::size_t, std::pair<Key*, Key*>> m_subKeys;
  std::unordered_set<Key*> m_valuesHashed;
  std::unordered_set<Key*> m_subKeysHashed;
  std::unordered_map<Key*, std::vector<bool>> m_valueGone;
  std::unordered_set<Key*> m_unsorted;
  std::unordered_set<Key*> m_subKeysGone;
  Root m_lastRoot = Root::kLocalMachine;
  std::vector<std::string> m_lastPath;
  std::vector<Key*> m_lastKeys;
};

} // namespace

void Apply(const std::vector<Entry>& entries, Tree* tree) {
  Applier(tree, entries.size()).Run(entries);
}

} // namespace regfile
} // namespace native
} // namespace qvbase
