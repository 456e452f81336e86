// NResourceStruct.cpp - tagged structure resources.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/NResourceStruct.h>

#include <qvbase/GDbg.h>
#include <qvbase/NResourceStream.h>
#include <qvbase/PASCIIString.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PList.h>
#include <qvbase/PStream.h>

namespace {

// The position passed to the trace's no-error mode: the defined source
// text, not a path of this tree.
const char kSourceFile[] = "src\\NResourceStruct";

// One record: a tag and its value.
class NResourceStructEntry : public PRoot {
public:
  NResourceStructEntry(const PASCIIString& tag, unsigned short value)
      : m_tag(tag), m_value(value) {}
  const PASCIIString& Tag() const { return m_tag; }
  unsigned short Value() const { return m_value; }

private:
  PASCIIString m_tag;
  unsigned short m_value;
};

// The entries, owned, in resource order.
class NResourceStructList : public PList {
public:
  NResourceStructList() : PList(GDynArrayDataConstructor) {}
  NResourceStructEntry* At(ULONG index) const {
    return static_cast<NResourceStructEntry*>(GetAnObject(index));
  }
  void Append(NResourceStructEntry* entry) { AddAnObjectTail(entry); }
};

// Enters the trace's no-error mode for a scope.
class NoErrorMode {
public:
  NoErrorMode() { GDbgEnterNoErrorMode(kSourceFile, __LINE__); }
  ~NoErrorMode() { GDbgExitNoErrorMode(); }
  NoErrorMode(const NoErrorMode&) = delete;
  NoErrorMode& operator=(const NoErrorMode&) = delete;
};

} // namespace

// The shared body: the resource's description and its parsed entries.
class NResourceStructData : public PSmartData {
public:
  explicit NResourceStructData(const NResourceDesc& resource) : m_resource(resource) {}
  ~NResourceStructData() override { DeleteEntries(); }

  // Parses the resource, on the first reference.
  void Initialize() override;
  // Deletes every entry and clears the list, on the last.
  void Uninitialize() override { DeleteEntries(); }

  const NResourceDesc& Resource() const { return m_resource; }
  ULONG Count() const { return m_entries.Size(); }
  const NResourceStructEntry* At(ULONG index) const { return m_entries.At(index); }
  // The first entry whose tag is `tag` exactly, or null.
  const NResourceStructEntry* Find(const char* tag) const;

private:
  void ReadEntries(PStream& stream);
  void DeleteEntries();

  NResourceDesc m_resource;
  NResourceStructList m_entries;
};

void NResourceStructData::Initialize() {
  // Whatever fails here (a missing resource, data that ends early) is thrown
  // by the full protection straight to the catch below, and never shown or
  // traced: the structure keeps the entries read so far.
  NoErrorMode quiet;
  try {
    PFullErrorProtection protection(true);
    PStream stream(new NResourceStream(m_resource));
    stream.Open(OpenRead);
    ReadEntries(stream);
    stream.Close();
  } catch (const PError&) {
  }
}

void NResourceStructData::ReadEntries(PStream& stream) {
  // The stream keeps its default byte ordering: values are little-endian.
  for (;;) {
    PASCIIString tag;
    stream.Read(&tag, '\0');
    if (tag.IsEmpty())
      return;
    // The data ended inside the tag (reading on moved the position past the
    // end) or inside its value: the record is not whole.
    const unsigned __int64 size = stream.GetSize();
    const unsigned __int64 position = stream.GetPos();
    if (position > size || size - position < sizeof(unsigned short))
      return;
    short value = 0;
    stream.Read(&value);
    m_entries.Append(new NResourceStructEntry(tag, static_cast<unsigned short>(value)));
  }
}

void NResourceStructData::DeleteEntries() {
  for (ULONG i = 0; i < m_entries.Size(); ++i)
    delete m_entries.At(i);
  m_entries.Clear();
}

const NResourceStructEntry* NResourceStructData::Find(const char* tag) const {
  if (!tag)
    return nullptr;
  for (ULONG i = 0; i < m_entries.Size(); ++i) {
    const NResourceStructEntry* entry = m_entries.At(i);
    if (entry->Tag().CompareTo(tag, kStrCompExact) == 0)
      return entry;
  }
  return nullptr;
}

// ---------------------------------------------------------------------------
// NResourceStruct

NResourceStruct::NResourceStruct() = default;

NResourceStruct::NResourceStruct(const NResourceDesc& resource) {
  AssignTo(new NResourceStructData(resource));
}

NResourceStruct::NResourceStruct(const NResourceStruct& other) : PSmartPtr(other) {}

NResourceStruct& NResourceStruct::operator=(const NResourceStruct& other) {
  PSmartPtr::operator=(other);
  return *this;
}

NResourceStruct::~NResourceStruct() = default;

NResourceStructData* NResourceStruct::Body() const {
  return static_cast<NResourceStructData*>(GetData());
}

ULONG NResourceStruct::Size() const { return Body() ? Body()->Count() : 0; }

PString NResourceStruct::GetTag(ULONG index) const {
  if (!Body() || index >= Body()->Count())
    return PString();
  return Body()->At(index)->Tag();
}

bool NResourceStruct::HasTag(const char* tag) const { return Body() && Body()->Find(tag); }

bool NResourceStruct::GetValue(const char* tag, NResourceLocation& out) const {
  const NResourceStructEntry* entry = Body() ? Body()->Find(tag) : nullptr;
  if (!entry)
    return false;
  out = NResourceLocation(Body()->Resource().Location().ResourceContainer(), entry->Value());
  return true;
}

NResourceLocation NResourceStruct::GetValue(const char* tag) const {
  NResourceLocation location;
  GetValue(tag, location);
  return location;
}
