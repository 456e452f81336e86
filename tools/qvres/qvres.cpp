// qvres - lists and decodes the resources of a resource module.
// Part of qvbase, the QVKernel foundation class library.
//
// A resource module is what a resource compiler makes of an .rc source: a
// compiled resource file (.res, the Linux build's form) or a resource-only
// DLL (a PE image, the Windows build's form). qvres reads either from its
// bytes, with the reader QVComponent uses, so that it shows the same on every
// platform: the resources with their type, identifier, language and size;
// the strings of the string tables; tagged structures as tags and values; any
// resource's bytes in hex. Exit status: 0 on success, 1 on input it cannot
// read or trust (one line naming the offset) or a resource that is not
// there, 2 on wrong usage.
#include "common/HexLine.h"
#include "resmodule/ResourceImage.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace {

using qvcomponent::resmodule::KeyText;
using qvcomponent::resmodule::ParseFailure;
using qvcomponent::resmodule::ResourceEntry;
using qvcomponent::resmodule::ResourceImage;
using qvcomponent::resmodule::ResourceKey;

constexpr int kExitOk = 0;
constexpr int kExitBadInput = 1;
constexpr int kExitUsage = 2;

constexpr std::uint16_t kTypeString = qvcomponent::resmodule::kTypeString;
constexpr std::uint32_t kStringsPerBundle = qvcomponent::resmodule::kStringsPerBundle;

const char kUsage[] =
    "usage: qvres [list] FILE\n"
    "       qvres strings FILE\n"
    "       qvres struct FILE TYPE ID\n"
    "       qvres hex FILE TYPE ID\n"
    "\n"
    "Reads a resource module: a compiled resource file (.res) or a resource-only\n"
    "DLL, as a resource compiler and a linker make them from an .rc source.\n"
    "\n"
    "commands:\n"
    "  list     every resource: type, identifier, language and size (the default)\n"
    "  strings  the strings of the string tables, by identifier\n"
    "  struct   a tagged structure: each tag and its 16-bit value\n"
    "  hex      a resource's bytes, 16 a line\n"
    "\n"
    "TYPE is a type number, a Windows type name (RCDATA, STRING, ICON, ...) or\n"
    "the name of a custom type; ID is a number or a name. Names match whatever\n"
    "the case of their letters.\n"
    "\n"
    "options:\n"
    "  --help  print this text\n"
    "\n"
    "exit status: 0 success, 1 bad input or no such resource, 2 wrong usage\n";

struct Failure {
  int status;
  std::string message;
};

[[noreturn]] void Usage(const std::string& message) {
  throw Failure{kExitUsage, message + " (see qvres --help)"};
}
[[noreturn]] void BadInput(const std::string& message) { throw Failure{kExitBadInput, message}; }

std::string Decimal(std::uint64_t value) {
  return std::to_string(static_cast<unsigned long long>(value));
}

std::string Hex(std::uint64_t value, int digits) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%0*llX", digits, static_cast<unsigned long long>(value));
  return text;
}

void Print(const std::string& line) { std::fputs((line + "\n").c_str(), stdout); }

// The Windows resource types that have names in .rc sources.
struct TypeName {
  std::uint16_t number;
  const char* name;
};
constexpr TypeName kTypeNames[] = {
    {1, "CURSOR"},      {2, "BITMAP"},     {3, "ICON"},          {4, "MENU"},
    {5, "DIALOG"},      {6, "STRING"},     {7, "FONTDIR"},       {8, "FONT"},
    {9, "ACCELERATOR"}, {10, "RCDATA"},    {11, "MESSAGETABLE"}, {12, "GROUP_CURSOR"},
    {14, "GROUP_ICON"}, {16, "VERSION"},   {17, "DLGINCLUDE"},   {19, "PLUGPLAY"},
    {20, "VXD"},        {21, "ANICURSOR"}, {22, "ANIICON"},      {23, "HTML"},
    {24, "MANIFEST"},
};

// Numbers in ascending order, then names in the order of their units.
bool KeyBefore(const ResourceKey& a, const ResourceKey& b) {
  if (a.isName != b.isName)
    return !a.isName;
  return a.isName ? a.name < b.name : a.number < b.number;
}

std::string TypeText(const ResourceKey& type) {
  if (!type.isName)
    for (const TypeName& t : kTypeNames)
      if (t.number == type.number)
        return std::string(t.name) + " (" + Decimal(t.number) + ")";
  return KeyText(type);
}

bool EqualIgnoringCase(const std::string& a, const char* b) {
  if (a.size() != std::strlen(b))
    return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (std::toupper(static_cast<unsigned char>(a[i])) != static_cast<unsigned char>(b[i]))
      return false;
  return true;
}

// A number (decimal or 0x hexadecimal) up to 65535, or nothing.
bool ParseNumber(const std::string& text, std::uint16_t* number) {
  if (text.empty())
    return false;
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  unsigned long value = 0;
  for (std::size_t i = hex ? 2 : 0; i < text.size(); ++i) {
    const char c = text[i];
    int digit;
    if (c >= '0' && c <= '9')
      digit = c - '0';
    else if (hex && std::isxdigit(static_cast<unsigned char>(c)))
      digit = std::toupper(static_cast<unsigned char>(c)) - 'A' + 10;
    else
      return false;
    value = value * (hex ? 16 : 10) + static_cast<unsigned long>(digit);
    if (value > 0xFFFF)
      return false;
  }
  *number = static_cast<std::uint16_t>(value);
  return true;
}

ResourceKey NameKey(const std::string& text) {
  std::u16string name;
  for (unsigned char c : text)
    name.push_back(static_cast<char16_t>(c));
  return ResourceKey::Name(name);
}

ResourceKey TypeArgument(const std::string& text) {
  std::uint16_t number;
  if (ParseNumber(text, &number))
    return ResourceKey::Number(number);
  for (const TypeName& t : kTypeNames)
    if (EqualIgnoringCase(text, t.name))
      return ResourceKey::Number(t.number);
  return NameKey(text);
}

ResourceKey IdArgument(const std::string& text) {
  std::uint16_t number;
  return ParseNumber(text, &number) ? ResourceKey::Number(number) : NameKey(text);
}

// A string's units as one printable line: printable ASCII as it is, the
// backslash doubled, everything else as \n, \t, \r or \uXXXX.
std::string Printable(const std::u16string& units) {
  std::string text;
  for (char16_t unit : units) {
    if (unit == u'\\') {
      text += "\\\\";
    } else if (unit >= 0x20 && unit < 0x7F) {
      text.push_back(static_cast<char>(unit));
    } else if (unit == u'\n') {
      text += "\\n";
    } else if (unit == u'\t') {
      text += "\\t";
    } else if (unit == u'\r') {
      text += "\\r";
    } else {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04X", static_cast<unsigned>(unit));
      text += escape;
    }
  }
  return text;
}

class Module {
public:
  Module(const std::string& path, std::vector<std::uint8_t> bytes)
      : m_path(path), m_bytes(std::move(bytes)) {
    ParseFailure failure;
    if (!m_image.Parse(m_bytes.data(), m_bytes.size(), &failure))
      BadInput(m_path + ": offset " + Decimal(failure.offset) + ": " + failure.message);
  }

  // Sorted by type, identifier and language (numbers before names), so that
  // the two forms of one .rc list alike.
  void List() const {
    std::vector<const ResourceEntry*> entries;
    for (const ResourceEntry& e : m_image.Entries())
      entries.push_back(&e);
    std::stable_sort(entries.begin(), entries.end(),
                     [](const ResourceEntry* a, const ResourceEntry* b) {
                       if (KeyBefore(a->type, b->type) || KeyBefore(b->type, a->type))
                         return KeyBefore(a->type, b->type);
                       if (KeyBefore(a->name, b->name) || KeyBefore(b->name, a->name))
                         return KeyBefore(a->name, b->name);
                       return a->language < b->language;
                     });
    char line[256];
    std::snprintf(line, sizeof line, "%-24s %-24s %-8s %s", "type", "identifier", "language",
                  "size");
    Print(line);
    for (const ResourceEntry* entry : entries) {
      const ResourceEntry& e = *entry;
      std::snprintf(line, sizeof line, "%-24s %-24s %-8s %s", TypeText(e.type).c_str(),
                    KeyText(e.name).c_str(), Hex(e.language, 4).c_str(), Decimal(e.size).c_str());
      Print(line);
    }
  }

  // Every string of the string tables, in identifier order, from the bundles
  // that FindResource would choose.
  void Strings() const {
    std::vector<const ResourceEntry*> bundles;
    for (const ResourceEntry& e : m_image.Entries())
      if (!e.type.isName && e.type.number == kTypeString && m_image.Find(e.type, e.name) == &e)
        bundles.push_back(&e);
    for (const ResourceEntry* bundle : bundles)
      if (bundle->name.isName || bundle->name.number == 0 || bundle->name.number > 4096)
        BadInput(m_path + ": offset " + Decimal(bundle->describedAt) + ": the string bundle " +
                 KeyText(bundle->name) + " is not a number from 1 to 4096");
    std::sort(bundles.begin(), bundles.end(), [](const ResourceEntry* a, const ResourceEntry* b) {
      return a->name.number < b->name.number;
    });
    // Checked whole first, so that bad input prints nothing but the message.
    std::vector<std::pair<std::uint32_t, std::u16string>> strings;
    for (const ResourceEntry* bundle : bundles)
      ReadBundle(*bundle, &strings);
    for (const auto& s : strings) {
      char id[16];
      std::snprintf(id, sizeof id, "%5u", static_cast<unsigned>(s.first));
      Print(std::string(id) + "  " + Printable(s.second));
    }
  }

  void Struct(const ResourceKey& type, const ResourceKey& id) const {
    const ResourceEntry& e = Resource(type, id);
    const std::uint8_t* data = m_image.Data(e);
    std::vector<std::string> lines;
    std::uint64_t at = 0;
    for (;;) {
      const std::uint64_t record = at;
      std::string tag;
      while (at < e.size && data[at] != 0)
        tag.push_back(static_cast<char>(data[at++]));
      if (at >= e.size)
        BadInput(m_path + ": offset " + Decimal(e.dataOffset + record) +
                 (tag.empty() ? std::string(": the structure ends without its empty tag")
                              : ": the structure ends inside the tag \"" + tag + "\""));
      ++at; // the zero byte
      if (tag.empty())
        break;
      if (e.size - at < 2)
        BadInput(m_path + ": offset " + Decimal(e.dataOffset + at) + ": the value of tag \"" + tag +
                 "\" is cut short");
      const unsigned value = data[at] | (data[at + 1] << 8);
      at += 2;
      std::u16string units(tag.begin(), tag.end());
      for (std::size_t i = 0; i < tag.size(); ++i)
        units[i] = static_cast<unsigned char>(tag[i]);
      char text[48];
      std::snprintf(text, sizeof text, "%u (0x%04X)", value, value);
      lines.push_back(Printable(units) + "\t" + text);
    }
    for (const std::string& line : lines)
      Print(line);
  }

  void HexDump(const ResourceKey& type, const ResourceKey& id) const {
    const ResourceEntry& e = Resource(type, id);
    Print(TypeText(e.type) + " " + KeyText(e.name) + " language " + Hex(e.language, 4) + ": " +
          Decimal(e.size) + " bytes at offset " + Decimal(e.dataOffset));
    const std::uint8_t* data = m_image.Data(e);
    for (std::uint32_t line = 0; line < e.size; line += 16)
      Print("  " + qvtools::HexLine(data + line, e.size - line < 16 ? e.size - line : 16, line));
  }

private:
  const ResourceEntry& Resource(const ResourceKey& type, const ResourceKey& id) const {
    const ResourceEntry* e = m_image.Find(type, id);
    if (!e)
      throw Failure{kExitBadInput, m_path + ": no resource of type " + TypeText(type) +
                                       " and identifier " + KeyText(id)};
    return *e;
  }

  void ReadBundle(const ResourceEntry& bundle,
                  std::vector<std::pair<std::uint32_t, std::u16string>>* strings) const {
    const std::uint8_t* data = m_image.Data(bundle);
    const std::uint32_t first = (bundle.name.number - 1u) * kStringsPerBundle;
    std::uint64_t at = 0;
    for (std::uint32_t index = 0; index < kStringsPerBundle && at < bundle.size; ++index) {
      if (bundle.size - at < 2)
        BadInput(m_path + ": offset " + Decimal(bundle.dataOffset + at) + ": string " +
                 Decimal(first + index) + " has half a length");
      const std::uint64_t length = data[at] | (data[at + 1] << 8);
      at += 2;
      if (2 * length > bundle.size - at)
        BadInput(m_path + ": offset " + Decimal(bundle.dataOffset + at - 2) + ": string " +
                 Decimal(first + index) + " of " + Decimal(length) +
                 " characters runs past its bundle");
      std::u16string units;
      for (std::uint64_t i = 0; i < length; ++i)
        units.push_back(static_cast<char16_t>(data[at + 2 * i] | (data[at + 2 * i + 1] << 8)));
      at += 2 * length;
      if (length != 0)
        strings->emplace_back(first + index, units);
    }
  }

  std::string m_path;
  std::vector<std::uint8_t> m_bytes;
  ResourceImage m_image;
};

std::vector<std::uint8_t> ReadWholeFile(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (!file)
    BadInput("cannot open " + path + ": " + std::strerror(errno));
  std::vector<std::uint8_t> bytes;
  std::uint8_t chunk[65536];
  for (;;) {
    const std::size_t got = std::fread(chunk, 1, sizeof chunk, file);
    if (got == 0)
      break;
    // Beyond this the reader refuses the bytes anyway: stop reading there.
    if (bytes.size() + got > qvcomponent::resmodule::kMaxImageSize) {
      std::fclose(file);
      BadInput(path + ": offset 0: the file is larger than a resource module may be (" +
               Decimal(qvcomponent::resmodule::kMaxImageSize) + " bytes)");
    }
    bytes.insert(bytes.end(), chunk, chunk + got);
  }
  const bool failed = std::ferror(file) != 0;
  std::fclose(file);
  if (failed)
    BadInput("cannot read " + path);
  return bytes;
}

int Main(int argc, char** argv) {
  std::vector<std::string> args;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return kExitOk;
    }
    if (arg.size() > 1 && arg[0] == '-')
      Usage("unknown option " + arg);
    args.push_back(arg);
  }
  if (args.empty())
    Usage("no FILE given");
  std::string command = "list";
  if (args[0] == "list" || args[0] == "strings" || args[0] == "struct" || args[0] == "hex") {
    command = args[0];
    args.erase(args.begin());
  }
  const std::size_t wanted = command == "struct" || command == "hex" ? 3 : 1;
  if (args.size() < wanted)
    Usage(command == "list" || command == "strings" ? "no FILE given"
                                                    : command + " needs FILE, TYPE and ID");
  if (args.size() > wanted)
    Usage("too many arguments for " + command);

  const Module module(args[0], ReadWholeFile(args[0]));
  if (command == "list")
    module.List();
  else if (command == "strings")
    module.Strings();
  else if (command == "struct")
    module.Struct(TypeArgument(args[1]), IdArgument(args[2]));
  else
    module.HexDump(TypeArgument(args[1]), IdArgument(args[2]));
  return std::fflush(stdout) == 0 ? kExitOk : kExitBadInput;
}

} // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const Failure& failure) {
    std::fflush(stdout);
    std::fprintf(stderr, "qvres: %s\n", failure.message.c_str());
    return failure.status;
  } catch (const std::exception& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "qvres: %s\n", e.what());
    return kExitBadInput;
  }
}
