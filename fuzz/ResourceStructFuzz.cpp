// Feeds arbitrary bytes to the tagged-structure parse of NResourceStruct, as
// the raw data resource 1 of a compiled resource file loaded by QVComponent:
// the parse must end with the whole records it could read (never more than
// the bytes can hold), raise nothing to its caller and leave the protection
// chain as it was; every lookup answers from what was parsed.
#include <qvbase/NResourceStruct.h>
#include <qvbase/PErrorProtection.h>

#include <QVResModule.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

void Append16(std::string* bytes, std::uint16_t value) {
  bytes->push_back(static_cast<char>(value & 0xFF));
  bytes->push_back(static_cast<char>(value >> 8));
}

void Append32(std::string* bytes, std::uint32_t value) {
  Append16(bytes, static_cast<std::uint16_t>(value));
  Append16(bytes, static_cast<std::uint16_t>(value >> 16));
}

// A compiled resource file holding `data` as raw data (type 10), number 1.
std::string ResourceFile(const std::uint8_t* data, std::size_t size) {
  std::string file = std::string("\0\0\0\0\x20\0\0\0\xFF\xFF\0\0\xFF\xFF\0\0", 16);
  file.resize(32, '\0');
  Append32(&file, static_cast<std::uint32_t>(size));
  Append32(&file, 32);
  Append16(&file, 0xFFFF);
  Append16(&file, 10);
  Append16(&file, 0xFFFF);
  Append16(&file, 1);
  Append32(&file, 0);      // data version
  Append16(&file, 0x1030); // memory flags
  Append16(&file, 0x0409); // language
  Append32(&file, 0);      // version
  Append32(&file, 0);      // characteristics
  file.append(reinterpret_cast<const char*>(data), size);
  return file;
}

// Rewritten for every input: in memory (/dev/shm) where there is one, since
// truncating a file on disk costs milliseconds.
std::string ScratchPath() {
  static const std::string path = [] {
    std::error_code error;
    const std::filesystem::path shm("/dev/shm");
    const std::filesystem::path dir =
        std::filesystem::is_directory(shm, error) ? shm : std::filesystem::temp_directory_path();
    return (dir / ("qvbase-struct-fuzz-" +
                   std::to_string(reinterpret_cast<std::uintptr_t>(&error)) + ".res"))
        .string();
  }();
  return path;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string path = ScratchPath();
  {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    const std::string file = ResourceFile(data, size);
    out.write(file.data(), static_cast<std::streamsize>(file.size()));
  }
  void* module = nullptr;
  if (QVRes_LoadModule(path.c_str(), &module) != QVRES_OK)
    std::abort();
  PErrorProtection* const chain = PErrorProtection::Innermost();
  {
    const NResourceStruct parsed(
        NResourceDesc(NResourceLocation(module), NResourceType(kResTypeRawData), 1));
    if (PErrorProtection::Innermost() != chain)
      std::abort();
    // A whole record is at least a byte of tag, its zero and two of value.
    if (parsed.Size() > size / 4)
      std::abort();
    for (ULONG i = 0; i < parsed.Size(); ++i) {
      const PMBString tag(parsed.GetTag(i));
      if (tag.IsEmpty() || !parsed.HasTag(tag))
        std::abort();
      NResourceLocation location;
      if (!parsed.GetValue(tag, location) || location.ResourceContainer() != module)
        std::abort();
    }
    if (!parsed.GetTag(parsed.Size()).IsEmpty())
      std::abort();
  }
  QVRes_FreeModule(module);
  return 0;
}
