// PStreamSection.h - identified, versioned, nested blocks inside a stream.
// Part of qvbase, the QVKernel foundation class library.
//
// A section is a tagged, length-prefixed block inside any stream: a 28-byte
// header - identifier (16 bytes), version (4), total size (8, header
// included), integers in the parent's byte ordering - then the body. Writers
// open a section, write its body with the typed operations, and closing it
// fills in the size; readers find a block by its identifier, skip blocks they
// do not know and tell versions apart. Sections nest: a section can be
// opened over another section.
//
//   PStreamSection doc = OpenWriteSection(file, PAutomaticUID("Document"), 2);
//   doc.Write(PString("title"));
//   doc.Close();                                // the size is written back
//
//   PStreamSection in = OpenReadSection(file, PAutomaticUID("Document"));
//   PString title;
//   in.Read(&title);
//   in.Close();                                 // the parent moves past it
//
// A section shares the parent's handler: the parent must be able to move
// back (the header is patched at close). Sections belong to one thread at a
// time, like their parent.
#pragma once

#include <qvbase/POverStream.h>
#include <qvbase/PStream.h>
#include <qvbase/PUniversalID.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// The handler of a section: an identified, versioned block inside its
// parent stream.
class QVBASE_API PStreamSectionHdl : public POverStreamHdl {
public:
  explicit PStreamSectionHdl(PStream& parent);
  PStreamSectionHdl(const PStreamSectionHdl& other);
  PStreamSectionHdl& operator=(const PStreamSectionHdl& other);
  ~PStreamSectionHdl() override;

  virtual PUniversalID GetID();
  virtual ULONG GetVersion() const;
  // Raises 1224 when the section is open: the identifier is in the header
  // already written. The version may change at any time: it is written
  // again at close.
  virtual void SetID(const PUniversalID& id);
  virtual void SetVersion(ULONG version);

protected:
  ULONG IORead(char* buffer, ULONG count, ULONG itemSize) override;
  ULONG IOWrite(const char* buffer, ULONG count, ULONG itemSize) override;
  void IOOpen(ULONG mode) override;
  void IOSetOpenMode(ULONG mode) override;
  ULONG IOGetAvailableOpenModes() const override;
  void IOClose() override;
  ULONG IOOpenMode() const override;
  void IOSetSize(unsigned __int64 size) override;
  unsigned __int64 IOGetSize() const override;
  void IOSetPos(TypSeekMode mode, unsigned __int64 offset) override;
  unsigned __int64 IOGetPos() const override;
  bool IOIsAtEnd() const override;

private:
  // A read or write of a section of exactly this class whose parent
  // carries it out in place skips the section's guard too.
  friend struct qvbase::streams::InPlace;

  void RaiseError(int code, TypErrorSeverityEnum severity, ULONG line);
  // Raises the error for an operation that needs `mode`: kErrStreamClosed when closed,
  // `wrongMode` when open otherwise. True when the section is in `mode`.
  bool RequireOpenMode(ULONG mode, int wrongMode, ULONG line);

  PUniversalID m_identifier;
  ULONG m_version;
  unsigned __int64 m_size;            // the header's size field, as known so far
  unsigned __int64 m_start;           // the parent's position of the header
  unsigned __int64 m_afterIdentifier; // where version and size are rewritten
};

// An identified, versioned, nested block inside a stream.
class QVBASE_API PStreamSection : public PStream {
public:
  // A section without handler.
  PStreamSection();
  // Shares the other's handler.
  PStreamSection(const PStreamSection& other);
  PStreamSection& operator=(const PStreamSection& other);
  ~PStreamSection() override;

  PUniversalID ID() const;
  ULONG Version() const;
  void SetID(const PUniversalID& id);
  void SetVersion(ULONG version);

protected:
  // A new section handler over `parent`, with the parent's byte ordering.
  explicit PStreamSection(PStream& parent);

private:
  PStreamSectionHdl* SectionHandler() const;

  friend QVBASE_API PStreamSection OpenWriteSection(PStream& parent, const PUniversalID& id,
                                                    ULONG version);
  friend QVBASE_API PStreamSection OpenReadSection(PStream& parent);
  friend QVBASE_API PStreamSection OpenReadSection(PStream& parent, const PUniversalID& id);
};

// Opens a section for writing at the parent's position: the header goes out
// at once, with a provisional size that closing replaces.
QVBASE_API PStreamSection OpenWriteSection(PStream& parent, const PUniversalID& id, ULONG version);
// Opens the section at the parent's position for reading, whatever its
// identifier. A header whose size is below 28 raises 1233; when that returns
// the section is taken as the header alone.
QVBASE_API PStreamSection OpenReadSection(PStream& parent);
// The same, but a section of another identifier is closed (the parent then
// stands after it) and error 1233 (severity 29) is raised.
QVBASE_API PStreamSection OpenReadSection(PStream& parent, const PUniversalID& id);
// The identifier of the section at the parent's position; the position is
// left where it was.
QVBASE_API PUniversalID GetNextSection(PStream& parent);
// Moves the parent past the section at its position: to that position plus
// the header's size field, as the header says. A size below the 28-byte
// header is not a section: it raises 1233, and when that returns only the
// header is skipped, so a loop over sections always moves on.
QVBASE_API void SkipCurrentSection(PStream& parent);
// 28, the header's length.
QVBASE_API ULONG GetWriteSectionSize(const PStream& parent);
