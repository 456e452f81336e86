// Feeds arbitrary bytes to the resource-module reader, as a compiled resource
// file or a PE image: it must accept them with every resource inside the
// bytes, or refuse them with a message and an offset inside the bytes, never
// read out of bounds; lookups on what it accepts stay inside too.
#include "resmodule/ResourceImage.h"

#include <cstdint>
#include <cstdlib>
#include <string>

using qvcomponent::resmodule::ParseFailure;
using qvcomponent::resmodule::ResourceEntry;
using qvcomponent::resmodule::ResourceImage;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ResourceImage image;
  ParseFailure failure;
  if (!image.Parse(data, size, &failure)) {
    if (failure.message.empty() || failure.offset > size || !image.Entries().empty())
      std::abort();
    return 0;
  }
  volatile std::uint8_t sink = 0;
  for (const ResourceEntry& entry : image.Entries()) {
    if (entry.dataOffset > size || entry.size > size - entry.dataOffset)
      std::abort();
    // Every byte of the data is readable, and the lookup finds an entry of
    // the same type and name.
    const std::uint8_t* bytes = image.Data(entry);
    for (std::uint32_t i = 0; i < entry.size; ++i)
      sink = sink ^ bytes[i];
    const ResourceEntry* found = image.Find(entry.type, entry.name);
    if (!found || !found->type.Matches(entry.type) || !found->name.Matches(entry.name))
      std::abort();
    (void)qvcomponent::resmodule::KeyText(entry.name);
  }
  // Strings: the first and last of every bundle, and a few in between.
  std::u16string text;
  for (std::uint32_t id : {0u, 1u, 15u, 16u, 17u, 1007u, 4000u, 65535u})
    if (image.FindString(id, &text) && text.empty())
      std::abort();
  return 0;
}
