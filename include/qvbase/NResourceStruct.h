// NResourceStruct.h - tagged structure resources: named 16-bit values.
// Part of qvbase, the QVKernel foundation class library.
//
// A tagged structure is a resource made of records, each a tag (one or more
// non-zero bytes and a zero byte) and a 16-bit little-endian value, ended by
// an empty tag (a single zero byte); bytes after it are not part of it. In
// an .rc source:
//
//   SETTINGS RCDATA
//   BEGIN
//     "Title\0", 12, "Icon\0", 3, "\0"
//   END
//
// Each value names another resource of the same module: GetValue("Title")
// gives (the module, 12), a location whose base is that identifier:
//
//   NResourceStruct settings(GTesselResource(NResourceType(kResTypeRawData), 300));
//   NResourceLocation title = settings["Title"];
//   PMBString text = NResourceString(0, title);
//
// The structure is parsed when the first handle to it is made, under a
// full error protection with the error trace in its no-error mode: a
// missing resource gives an empty structure, and data that ends before the
// empty tag keeps the records read whole so far (a record whose value is cut
// short is not kept). Handles are counted: copies share one parsed body.
// A structure belongs to one thread at a time.
#pragma once

#include <qvbase/NResource.h>
#include <qvbase/PSmartData.h>
#include <qvbase/PString.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

#include <type_traits>

class NResourceStructData;

// A tagged structure resource: its named 16-bit values, looked up by tag.
class QVBASE_API NResourceStruct : public PSmartPtr {
public:
  // No body: no entries.
  NResourceStruct();
  // Makes the body, which parses the resource.
  explicit NResourceStruct(const NResourceDesc& resource);
  NResourceStruct(const NResourceStruct& other);
  NResourceStruct& operator=(const NResourceStruct& other);
  ~NResourceStruct() override;

  // The number of entries; 0 without a body.
  ULONG Size() const;
  // The tag of entry `index`, in resource order; empty when out of range.
  PString GetTag(ULONG index) const;
  // Any integer type is an index (so that s[0] is not taken for a null tag).
  template <typename Index, typename = std::enable_if_t<std::is_integral_v<Index>>>
  PString operator[](Index index) const {
    return GetTag(static_cast<ULONG>(index));
  }

  // Tags compare exactly (case counts); the first match in resource order
  // wins.
  bool HasTag(const char* tag) const;
  // For a matching tag, `out` becomes (the structure's module, the entry's
  // value) and the result is true; otherwise `out` stays and it is false.
  bool GetValue(const char* tag, NResourceLocation& out) const;
  // The same location, or (0, 0) when no tag matches.
  NResourceLocation GetValue(const char* tag) const;
  NResourceLocation operator[](const char* tag) const { return GetValue(tag); }

private:
  NResourceStructData* Body() const;
};
