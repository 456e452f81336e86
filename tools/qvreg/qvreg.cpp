// qvreg - reads and edits the registry that the qvbase library reads.
// Part of qvbase, the QVKernel foundation class library.
//
// On Windows it works on the system registry; elsewhere on the library's .reg
// text store. Every command goes through the platform layer's registry
// functions, so it behaves the same on both. Exit status: 0 on success, 1 when
// the operation fails, 2 on wrong usage; every failure prints one line.
#include "native/RegFile.h"
#include "native/RegFileParser.h"
#include "native/RegFileWriter.h"
#include "native/Registry.h"

#include "common/JsonText.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace native = qvbase::native;
namespace regfile = qvbase::native::regfile;

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

const char kUsage[] =
    "usage: qvreg <command> [arguments]\n"
    "\n"
    "Reads and edits the registry that the qvbase library reads: on Windows the\n"
    "system registry, elsewhere the .reg text file named by QVBASE_REGISTRY\n"
    "(default $XDG_CONFIG_HOME/qvbase/registry.reg).\n"
    "\n"
    "KEY is ROOT\\path, ROOT being HKEY_LOCAL_MACHINE (HKLM) or HKEY_CURRENT_USER\n"
    "(HKCU). The empty NAME \"\" is the key's default value.\n"
    "\n"
    "commands:\n"
    "  get KEY [NAME]               print a value (the default value without NAME)\n"
    "  set KEY NAME TYPE [DATA...]  write a value, creating the key if needed;\n"
    "                               TYPE: sz, expand_sz, multi_sz (one DATA per\n"
    "                               string), dword, qword (decimal or 0x...),\n"
    "                               binary, none (hex bytes: 01,02,ff or 0102ff)\n"
    "  delete KEY NAME              delete a value\n"
    "  delete-key KEY               delete a key and everything below it\n"
    "  list KEY [--json]            list sub-keys (name\\) and values\n"
    "                               (name, type and data, tab-separated);\n"
    "                               --json: one JSON document (schema in the README)\n"
    "  import FILE                  apply a .reg file (version 5.00 or REGEDIT4)\n"
    "  export KEY [FILE] [--utf16]  write KEY and everything below it as a .reg\n"
    "                               file (UTF-8; --utf16 writes regedit's UTF-16\n"
    "                               form and needs FILE)\n"
    "  store                        print where the registry lives\n"
    "  --help                       print this text\n"
    "\n"
    "exit status: 0 success, 1 the operation failed, 2 wrong usage\n";

struct Failure {
  int status;
  std::string message;
};

[[noreturn]] void Usage(const std::string& message) { throw Failure{kExitUsage, message}; }
[[noreturn]] void Failed(const std::string& message) { throw Failure{kExitFailed, message}; }

std::string Explain(LONG rc) {
  std::string text = native::RegLastErrorText();
  return text.empty() ? "error " + std::to_string(rc) : text;
}

// A key's name for a message: whole when short, else its start, "..." and
// its length, so that an over-long name does not flood the line.
std::string Shown(const std::string& keyName) {
  constexpr std::size_t kShownLength = 60;
  if (keyName.size() <= kShownLength + 20)
    return keyName;
  return keyName.substr(0, kShownLength) + "... (" + std::to_string(keyName.size()) + " bytes)";
}

// A value name, or any other text from the command line, quoted for a
// message and cut when over-long.
std::string Quoted(const std::string& text) { return regfile::QuotedForMessage(text); }

struct KeyName {
  regfile::Root root;
  std::string path; // below the root, may be empty
  std::string display;
};

KeyName ParseKeyName(const std::string& text) {
  KeyName name;
  std::size_t slash = text.find('\\');
  if (!regfile::ParseRootName(text.substr(0, slash), &name.root))
    Usage("unknown root in " + Quoted(text) +
          ": expected HKEY_LOCAL_MACHINE, HKLM, HKEY_CURRENT_USER or HKCU");
  name.path = slash == std::string::npos ? "" : text.substr(slash + 1);
  std::vector<std::string> names;
  if (!regfile::SplitKeyPath(name.path, &names))
    Usage("invalid key name " + Quoted(text));
  name.display = regfile::RootName(name.root);
  for (const std::string& n : names)
    name.display += "\\" + n;
  return name;
}

native::RegKey RootHandle(regfile::Root root) {
  return root == regfile::Root::kLocalMachine ? native::kRegLocalMachine : native::kRegCurrentUser;
}

// An open key, closed when it goes out of scope.
class OpenKey {
public:
  OpenKey(const KeyName& name, DWORD access, bool create) {
    LONG rc = create ? native::CreateRegKey(RootHandle(name.root), name.path.c_str(), nullptr,
                                            access, &m_key, nullptr)
                     : native::OpenRegKey(RootHandle(name.root), name.path.c_str(), access, &m_key);
    if (rc != ERROR_SUCCESS)
      Failed("cannot open " + Shown(name.display) + ": " + Explain(rc));
  }
  ~OpenKey() {
    if (m_key)
      native::CloseRegKey(m_key);
  }
  OpenKey(const OpenKey&) = delete;
  OpenKey& operator=(const OpenKey&) = delete;
  native::RegKey get() const { return m_key; }

private:
  native::RegKey m_key = nullptr;
};

struct TypeName {
  const char* name;
  DWORD type;
};
const TypeName kTypes[] = {
    {"none", native::kRegNone},          {"sz", native::kRegSz},
    {"expand_sz", native::kRegExpandSz}, {"binary", native::kRegBinary},
    {"dword", native::kRegDword},        {"multi_sz", native::kRegMultiSz},
    {"qword", native::kRegQword},
};

std::string TypeText(DWORD type) {
  for (const TypeName& t : kTypes)
    if (t.type == type)
      return t.name;
  return "type" + std::to_string(type);
}

std::string HexBytes(const std::vector<BYTE>& data) {
  std::string out;
  char buffer[4];
  for (std::size_t i = 0; i < data.size(); ++i) {
    std::snprintf(buffer, sizeof buffer, "%02x", data[i]);
    if (i)
      out += ',';
    out += buffer;
  }
  return out;
}

// The strings of a multi_sz, up to the empty string that ends the list.
std::vector<std::string> MultiStrings(const std::vector<BYTE>& data) {
  const std::string bytes(data.begin(), data.end());
  std::vector<std::string> strings;
  for (std::size_t pos = 0; pos < bytes.size();) {
    std::size_t end = bytes.find('\0', pos);
    if (end == std::string::npos)
      end = bytes.size();
    if (end == pos)
      break;
    strings.push_back(bytes.substr(pos, end - pos));
    pos = end + 1;
  }
  return strings;
}

// A value's data as the user reads it: text for strings, decimal numbers,
// hex bytes for the rest. `separator` joins the strings of a multi_sz.
std::string DataText(DWORD type, const std::vector<BYTE>& data, const char* separator) {
  std::string bytes(data.begin(), data.end());
  switch (type) {
  case native::kRegSz:
  case native::kRegExpandSz:
    return bytes.substr(0, bytes.find('\0'));
  case native::kRegMultiSz: {
    std::string out;
    bool first = true;
    for (const std::string& string : MultiStrings(data)) {
      if (!first)
        out += separator;
      out += string;
      first = false;
    }
    return out;
  }
  case native::kRegDword:
    if (data.size() == 4) {
      std::uint32_t v =
          data[0] | (data[1] << 8) | (data[2] << 16) | (static_cast<std::uint32_t>(data[3]) << 24);
      return std::to_string(v);
    }
    break;
  case native::kRegQword:
    if (data.size() == 8) {
      std::uint64_t v = 0;
      for (int i = 7; i >= 0; --i)
        v = (v << 8) | data[static_cast<std::size_t>(i)];
      return std::to_string(v);
    }
    break;
  }
  return HexBytes(data);
}

std::vector<BYTE> ReadValue(native::RegKey key, const std::string& name, DWORD* type) {
  DWORD size = 0;
  LONG rc;
  std::vector<BYTE> data;
  do {
    rc = native::QueryRegValue(key, name.c_str(), type, nullptr, &size);
    if (rc != ERROR_SUCCESS)
      break;
    data.resize(size);
    rc = native::QueryRegValue(key, name.c_str(), type, data.data(), &size);
  } while (rc == ERROR_MORE_DATA);
  if (rc != ERROR_SUCCESS)
    Failed("cannot read value " + Quoted(name) + ": " + Explain(rc));
  data.resize(size);
  return data;
}

std::uint64_t ParseNumber(const std::string& text, std::uint64_t max) {
  if (text.empty() || text[0] == '-' || text[0] == '+')
    Usage("expected a number, found " + Quoted(text));
  errno = 0;
  char* end = nullptr;
  unsigned long long v = std::strtoull(text.c_str(), &end, 0);
  if (errno != 0 || *end != '\0' || v > max)
    Usage("expected a number up to " + std::to_string(max) + ", found " + Quoted(text));
  return v;
}

std::vector<BYTE> ParseHexData(const std::vector<std::string>& args) {
  std::vector<BYTE> bytes;
  std::string digits;
  for (const std::string& arg : args)
    for (char c : arg)
      if (c != ',' && c != ' ')
        digits += c;
  if (digits.size() % 2 != 0)
    Usage("hex data needs two digits per byte");
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    std::uint64_t v = 0;
    std::string pair = digits.substr(i, 2);
    if (pair.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
      Usage("invalid hex byte " + Quoted(pair));
    v = std::strtoull(pair.c_str(), nullptr, 16);
    bytes.push_back(static_cast<BYTE>(v));
  }
  return bytes;
}

std::vector<BYTE> EncodeData(DWORD type, const std::vector<std::string>& args) {
  std::vector<BYTE> data;
  auto single = [&]() -> const std::string& {
    if (args.size() != 1)
      Usage("this type takes exactly one DATA argument");
    return args[0];
  };
  switch (type) {
  case native::kRegSz:
  case native::kRegExpandSz: {
    const std::string& text = single();
    data.assign(text.begin(), text.end());
    data.push_back(0);
    break;
  }
  case native::kRegMultiSz:
    for (const std::string& text : args) {
      if (text.empty())
        Usage("a multi_sz cannot hold an empty string");
      data.insert(data.end(), text.begin(), text.end());
      data.push_back(0);
    }
    data.push_back(0);
    break;
  case native::kRegDword: {
    std::uint64_t v = ParseNumber(single(), 0xFFFFFFFFull);
    for (int i = 0; i < 4; ++i)
      data.push_back(static_cast<BYTE>(v >> (8 * i)));
    break;
  }
  case native::kRegQword: {
    std::uint64_t v = ParseNumber(single(), ~0ull);
    for (int i = 0; i < 8; ++i)
      data.push_back(static_cast<BYTE>(v >> (8 * i)));
    break;
  }
  default:
    data = ParseHexData(args);
  }
  return data;
}

int CmdGet(const std::vector<std::string>& args) {
  if (args.empty() || args.size() > 2)
    Usage("get takes KEY [NAME]");
  KeyName name = ParseKeyName(args[0]);
  OpenKey key(name, native::kKeyRead, false);
  DWORD type = 0;
  std::vector<BYTE> data = ReadValue(key.get(), args.size() > 1 ? args[1] : "", &type);
  std::printf("%s\n", DataText(type, data, "\n").c_str());
  return kExitOk;
}

int CmdSet(const std::vector<std::string>& args) {
  if (args.size() < 3)
    Usage("set takes KEY NAME TYPE [DATA...]");
  KeyName name = ParseKeyName(args[0]);
  DWORD type = 0;
  bool known = false;
  for (const TypeName& t : kTypes)
    if (args[2] == t.name) {
      type = t.type;
      known = true;
    }
  if (!known)
    Usage("unknown type " + Quoted(args[2]) +
          ": expected sz, expand_sz, multi_sz, dword, qword, binary or none");
  std::vector<BYTE> data = EncodeData(type, std::vector<std::string>(args.begin() + 3, args.end()));
  OpenKey key(name, native::kKeyWrite, true);
  LONG rc = native::SetRegValue(key.get(), args[1].c_str(), type, data.data(),
                                static_cast<DWORD>(data.size()));
  if (rc != ERROR_SUCCESS)
    Failed("cannot write value " + Quoted(args[1]) + " in " + Shown(name.display) + ": " +
           Explain(rc));
  return kExitOk;
}

int CmdDelete(const std::vector<std::string>& args) {
  if (args.size() != 2)
    Usage("delete takes KEY NAME (use delete-key for a key)");
  KeyName name = ParseKeyName(args[0]);
  OpenKey key(name, native::kKeyAllAccess, false);
  LONG rc = native::DeleteRegValue(key.get(), args[1].c_str());
  if (rc != ERROR_SUCCESS)
    Failed("cannot delete value " + Quoted(args[1]) + " in " + Shown(name.display) + ": " +
           Explain(rc));
  return kExitOk;
}

int CmdDeleteKey(const std::vector<std::string>& args) {
  if (args.size() != 1)
    Usage("delete-key takes KEY");
  KeyName name = ParseKeyName(args[0]);
  if (name.path.empty())
    Usage("a root key cannot be deleted");
  LONG rc = native::DeleteRegTree(RootHandle(name.root), name.path.c_str());
  if (rc != ERROR_SUCCESS)
    Failed("cannot delete " + Shown(name.display) + ": " + Explain(rc));
  return kExitOk;
}

// Reads the key and everything below it into `out`.
void ReadTree(native::RegKey key, regfile::Key* out) {
  for (DWORD index = 0;; ++index) {
    std::vector<char> name(256 + 1);
    DWORD nameSize = static_cast<DWORD>(name.size());
    LONG rc = native::EnumRegKey(key, index, name.data(), &nameSize);
    if (rc == ERROR_NO_MORE_ITEMS)
      break;
    if (rc != ERROR_SUCCESS)
      Failed("cannot list the sub-keys of " + Shown(out->name) + ": " + Explain(rc));
    std::string subName(name.data(), nameSize);
    native::RegKey sub = nullptr;
    rc = native::OpenRegKey(key, subName.c_str(), native::kKeyRead, &sub);
    if (rc != ERROR_SUCCESS)
      Failed("cannot open " + Shown(subName) + ": " + Explain(rc));
    regfile::Key* child = out->AddSubKey(subName);
    try {
      ReadTree(sub, child);
    } catch (...) {
      native::CloseRegKey(sub);
      throw;
    }
    native::CloseRegKey(sub);
  }
  DWORD maxName = 0, maxData = 0;
  LONG rc = native::QueryRegKeyInfo(key, nullptr, nullptr, nullptr, &maxName, &maxData);
  if (rc != ERROR_SUCCESS)
    Failed("cannot read " + Shown(out->name) + ": " + Explain(rc));
  for (DWORD index = 0;; ++index) {
    std::vector<char> name(maxName + 1);
    std::vector<BYTE> data(maxData);
    DWORD nameSize = static_cast<DWORD>(name.size()), dataSize = maxData, type = 0;
    rc = native::EnumRegValue(key, index, name.data(), &nameSize, &type, data.data(), &dataSize);
    if (rc == ERROR_NO_MORE_ITEMS)
      break;
    if (rc != ERROR_SUCCESS)
      Failed("cannot list the values of " + Shown(out->name) + ": " + Explain(rc));
    data.resize(dataSize);
    out->SetValue(std::string(name.data(), nameSize), type, std::move(data));
  }
}

// A value's data in JSON: a string for sz and expand_sz, an array of
// strings for multi_sz, a number for a dword or qword of the right size, the
// bytes as a hex string for everything else.
std::string DataJson(DWORD type, const std::vector<BYTE>& data) {
  switch (type) {
  case native::kRegSz:
  case native::kRegExpandSz:
    return qvtools::JsonString(DataText(type, data, ""));
  case native::kRegMultiSz: {
    std::string out = "[";
    for (const std::string& string : MultiStrings(data))
      out += (out.size() > 1 ? ", " : "") + qvtools::JsonString(string);
    return out + "]";
  }
  case native::kRegDword:
  case native::kRegQword:
    if (data.size() == (type == native::kRegDword ? 4u : 8u))
      return DataText(type, data, "");
    break;
  }
  return qvtools::JsonHexBytes(data.data(), data.size());
}

int CmdList(const std::vector<std::string>& args) {
  std::vector<std::string> keys;
  bool json = false;
  for (const std::string& arg : args)
    (arg == "--json" ? json = true, void() : keys.push_back(arg));
  if (keys.size() != 1)
    Usage("list takes KEY");
  KeyName name = ParseKeyName(keys[0]);
  OpenKey key(name, native::kKeyRead, false);
  regfile::Key tree;
  tree.name = name.display;
  ReadTree(key.get(), &tree);
  if (!json) {
    for (const auto& sub : tree.subKeys)
      std::printf("%s\\\n", sub->name.c_str());
    for (const regfile::Value& v : tree.values)
      std::printf("%s\t%s\t%s\n", v.name.empty() ? "@" : v.name.c_str(), TypeText(v.type).c_str(),
                  DataText(v.type, v.data, "\\0").c_str());
    return kExitOk;
  }
  std::string out = "{\"key\": " + qvtools::JsonString(name.display) + ", \"subKeys\": [";
  for (std::size_t i = 0; i < tree.subKeys.size(); ++i)
    out += (i ? ", " : "") + qvtools::JsonString(tree.subKeys[i]->name);
  out += "], \"values\": [";
  for (std::size_t i = 0; i < tree.values.size(); ++i) {
    const regfile::Value& v = tree.values[i];
    out += std::string(i ? "," : "") + "\n  {\"name\": " + qvtools::JsonString(v.name) +
           ", \"type\": " + qvtools::JsonString(TypeText(v.type)) +
           ", \"data\": " + DataJson(v.type, v.data) + "}";
  }
  out += tree.values.empty() ? "]}\n" : "\n]}\n";
  std::fputs(out.c_str(), stdout);
  return kExitOk;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in)
    Failed("cannot read " + path + ": " + std::strerror(errno));
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

native::RegKey CreatePath(const regfile::Entry& e, const std::string& file) {
  std::string path;
  for (const std::string& n : e.path)
    path += (path.empty() ? "" : "\\") + n;
  native::RegKey key = nullptr;
  LONG rc = native::CreateRegKey(RootHandle(e.root), path.c_str(), nullptr, native::kKeyAllAccess,
                                 &key, nullptr);
  if (rc != ERROR_SUCCESS)
    Failed(file + ":" + std::to_string(e.line) + ": cannot create key: " + Explain(rc));
  return key;
}

int CmdImport(const std::vector<std::string>& args) {
  if (args.size() != 1)
    Usage("import takes FILE");
  std::string bytes = ReadFile(args[0]);
  std::vector<regfile::Entry> entries;
  regfile::ParseError error;
  // The whole file is parsed before anything is applied: a bad file changes nothing.
  if (!regfile::Parse(bytes, &entries, &error))
    Failed(args[0] + ":" + std::to_string(error.line) + ": " + error.message);
  for (const regfile::Entry& e : entries) {
    std::string path;
    for (const std::string& n : e.path)
      path += (path.empty() ? "" : "\\") + n;
    if (e.kind == regfile::Entry::kDeleteKey) {
      LONG rc = native::DeleteRegTree(RootHandle(e.root), path.c_str());
      if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND)
        Failed(args[0] + ":" + std::to_string(e.line) + ": cannot delete key: " + Explain(rc));
      continue;
    }
    native::RegKey key = CreatePath(e, args[0]);
    LONG rc = ERROR_SUCCESS;
    if (e.kind == regfile::Entry::kValue)
      rc = native::SetRegValue(key, e.name.c_str(), e.type, e.data.data(),
                               static_cast<DWORD>(e.data.size()));
    else if (e.kind == regfile::Entry::kDeleteValue) {
      rc = native::DeleteRegValue(key, e.name.c_str());
      if (rc == ERROR_FILE_NOT_FOUND)
        rc = ERROR_SUCCESS;
    }
    std::string why = rc == ERROR_SUCCESS ? "" : Explain(rc);
    native::CloseRegKey(key);
    if (rc != ERROR_SUCCESS)
      Failed(args[0] + ":" + std::to_string(e.line) + ": cannot write value: " + why);
  }
  return kExitOk;
}

int CmdExport(std::vector<std::string> args) {
  bool utf16 = false;
  for (auto it = args.begin(); it != args.end();) {
    if (*it == "--utf16") {
      utf16 = true;
      it = args.erase(it);
    } else {
      ++it;
    }
  }
  if (args.empty() || args.size() > 2)
    Usage("export takes KEY [FILE] [--utf16]");
  if (utf16 && args.size() < 2)
    Usage("--utf16 needs an output FILE");
  KeyName name = ParseKeyName(args[0]);
  OpenKey key(name, native::kKeyRead, false);
  regfile::Key tree;
  tree.name = name.display;
  ReadTree(key.get(), &tree);
  std::vector<std::string> path;
  regfile::SplitKeyPath(name.path, &path);
  std::string text = regfile::WriteKey(
      name.root, path, tree, utf16 ? regfile::Encoding::kUtf16 : regfile::Encoding::kUtf8);
  if (args.size() < 2) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    return kExitOk;
  }
  std::ofstream out(args[1], std::ios::binary | std::ios::trunc);
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
  out.close();
  if (!out)
    Failed("cannot write " + args[1]);
  return kExitOk;
}

int Run(int argc, char** argv) {
  if (argc < 2)
    Usage("no command given");
  std::string command = argv[1];
  std::vector<std::string> args(argv + 2, argv + argc);
  if (command == "--help" || command == "-h" || command == "help") {
    std::fputs(kUsage, stdout);
    return kExitOk;
  }
  if (command == "get")
    return CmdGet(args);
  if (command == "set")
    return CmdSet(args);
  if (command == "delete")
    return CmdDelete(args);
  if (command == "delete-key")
    return CmdDeleteKey(args);
  if (command == "list")
    return CmdList(args);
  if (command == "import")
    return CmdImport(args);
  if (command == "export")
    return CmdExport(args);
  if (command == "store") {
    if (!args.empty())
      Usage("store takes no arguments");
    std::printf("%s\n", native::RegStoreDescription().c_str());
    return kExitOk;
  }
  Usage("unknown command " + Quoted(command));
}

} // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const Failure& failure) {
    std::fprintf(stderr, "qvreg: %s%s\n", failure.message.c_str(),
                 failure.status == kExitUsage ? " (see qvreg --help)" : "");
    return failure.status;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "qvreg: %s\n", e.what());
    return kExitFailed;
  }
}
