// RegFile.cpp - the key tree of the .reg text format and its statements.
// Part of qvbase, the QVKernel foundation class library.
#include "native/RegFile.h"

#include <algorithm>

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
  Key* key = this;
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

void Apply(const std::vector<Entry>& entries, Tree* tree) {
  for (const Entry& e : entries) {
    Key* key = &tree->RootKey(e.root);
    if (e.kind == Entry::kDeleteKey) {
      std::vector<std::string> parentPath(e.path.begin(), e.path.end() - 1);
      if (Key* parent = key->Find(parentPath))
        parent->RemoveSubKey(e.path.back());
      continue;
    }
    for (const std::string& name : e.path)
      key = key->AddSubKey(name);
    if (e.kind == Entry::kValue)
      key->SetValue(e.name, e.type, e.data);
    else if (e.kind == Entry::kDeleteValue)
      key->RemoveValue(e.name);
  }
}

} // namespace regfile
} // namespace native
} // namespace qvbase
