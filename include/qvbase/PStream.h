// PStream.h - the stream front object and the abstract stream handler.
// Part of qvbase, the QVKernel foundation class library.
//
// Every byte-oriented input and output of the library goes through two
// objects. PStream is a small value-like front object: it owns one counted
// reference to a back end, a PStreamHdl, and carries the byte ordering that
// the typed operations use. PStreamHdl is the abstract back end, a
// reference-counted PSmartData: its public operations are fixed here and run
// the protected IO operations that each concrete handler supplies. Several
// PStream objects may share one handler (and so one position); the handler
// lives as long as one of them refers to it, and the last one going away
// closes it if it is still open.
//
// Reads and writes take (buffer, count of items, bytes per item) and return
// whole items. The public Read, Write, Open, SetOpenMode, Close, Flush,
// SetSize and SetPos run inside a retry protection: when an error hook
// answers "retry", a failed read or write starts again from the position it
// started from, as often as the hook keeps answering so.
//
//   PStream stream(new PMemoryStreamHdl(/*granularity=*/4096));
//   stream.Open(OpenWrite);
//   stream.Write("abc", /*count=*/3, /*itemSize=*/1);
//   stream.MoveTo(0);
//   stream.Close();
//
// Nothing here takes a lock: a handler and the streams over it belong to one
// thread at a time.
#pragma once

#include <qvbase/PError.h>
#include <qvbase/PRoot.h>
#include <qvbase/PSmartData.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

class PProgressHook;
class PString;
class PTime;
class PUTDate;
class PUniversalID;

namespace qvbase {
namespace streams {
struct InPlace;
} // namespace streams
} // namespace qvbase

// Open modes are bit masks; 0 is closed.
constexpr ULONG OpenRead = 0x20000000;  // bit 29: readable
constexpr ULONG OpenWrite = 0x10000000; // bit 28: writable
constexpr ULONG OpenReadWrite = OpenRead | OpenWrite;

// The origin of a seek. Offsets are always unsigned: the direction is in the
// mode, never in a sign. 32-bit with every value storable, so that handlers
// can reject modes they do not know.
enum TypSeekMode : LONG {
  SeekFwd = 0,       // forward from the current position
  SeekBack = 1,      // backward from the current position
  SeekFromStart = 2, // absolute position = offset
  SeekFromEnd = 3,   // position = size - offset
};

// Byte orderings of the integers on a stream: the two characters of the
// marker that WriteByteOrdering puts on it.
constexpr unsigned short kByteOrderingIntel = 0x4949;    // "II", little-endian
constexpr unsigned short kByteOrderingMotorola = 0x4D4D; // "MM", big-endian

// The abstract back end of a stream. Derived handlers supply the IO
// operations; the public operations are the same for all of them.
class QVBASE_API PStreamHdl : public PSmartData {
public:
  ~PStreamHdl() override;

  // Closes a handler that is still open when its last reference goes: through
  // the public Close (its errors reach the caller) unless an operation has
  // failed, in which case IOClose runs inside a full protection with the
  // trace in no-error mode, so that a failed stream never raises a second
  // error on its way out.
  void Uninitialize() override;

  // IID_IStream and IID_ISequentialStream give a new stream adapter over this
  // handler (one per query); anything else is PSmartData's to answer.
  HRESULT QueryInterface(const _GUID& iid, void** out) const override;

  // Guarded operations (see the file comment).
  virtual ULONG Read(char* buffer, ULONG count, ULONG itemSize);
  virtual ULONG Write(const char* buffer, ULONG count, ULONG itemSize);
  virtual void Open(ULONG mode);
  virtual void SetOpenMode(ULONG mode);
  // Unguarded.
  virtual ULONG GetAvailableOpenModes() const;
  // Guarded.
  virtual void Close();
  virtual void Flush();
  // Unguarded.
  virtual ULONG OpenMode() const;
  // Guarded.
  virtual void SetSize(unsigned __int64 size);
  // Unguarded.
  virtual unsigned __int64 GetSize() const;
  // Guarded.
  virtual void SetPos(TypSeekMode mode, unsigned __int64 offset);
  // Unguarded.
  virtual unsigned __int64 GetPos() const;
  virtual bool IsAtEnd() const;

  // The hook through which handlers prepare the errors they raise: returns
  // IOPrepareError(error).
  virtual PError PrepareError(PError& error);

  bool IsOpened() const { return OpenMode() != 0; }
  bool IsReadable() const { return (OpenMode() & OpenRead) != 0; }
  bool IsWritable() const { return (OpenMode() & OpenWrite) != 0; }

  // True when the last guarded attempt ended in an error.
  bool HasFailed() const { return m_failed; }

protected:
  PStreamHdl();
  PStreamHdl(const PStreamHdl& other);
  PStreamHdl& operator=(const PStreamHdl& other);

  virtual ULONG IORead(char* buffer, ULONG count, ULONG itemSize) = 0;
  virtual ULONG IOWrite(const char* buffer, ULONG count, ULONG itemSize) = 0;
  virtual void IOOpen(ULONG mode) = 0;
  virtual void IOSetOpenMode(ULONG mode) = 0;
  virtual ULONG IOGetAvailableOpenModes() const = 0;
  virtual void IOClose() = 0;
  virtual void IOFlush() = 0;
  virtual ULONG IOOpenMode() const = 0;
  virtual void IOSetSize(unsigned __int64 size) = 0;
  virtual unsigned __int64 IOGetSize() const = 0;
  virtual void IOSetPos(TypSeekMode mode, unsigned __int64 offset) = 0;
  virtual unsigned __int64 IOGetPos() const = 0;
  virtual bool IOIsAtEnd() const = 0;
  // Returns an unchanged copy. A handler over another stream passes the error
  // on to the stream beneath, so that the innermost layer prepares it.
  virtual PError IOPrepareError(PError& error);

  bool IOIsOpened() const { return IOOpenMode() != 0; }
  bool IOIsReadable() const { return (IOOpenMode() & OpenRead) != 0; }
  bool IOIsWritable() const { return (IOOpenMode() & OpenWrite) != 0; }

  // For handlers that run guarded steps of their own (cleared at the start of
  // an attempt, set when it failed).
  void SetFailed(bool failed) { m_failed = failed; }

private:
  // Reads, writes and seeks of the library's own memory handler (and of its
  // sections over one) that can neither fail nor call out are carried out
  // without the guard; see the library's stream sources.
  friend struct qvbase::streams::InPlace;

  template <typename Operation>
  auto RunGuarded(Operation operation, bool restorePosition) -> decltype(operation());

  bool m_failed;
};

// The front object. Copies share the handler; each has its own byte ordering.
class QVBASE_API PStream : public PRoot {
public:
  PStream();
  // Takes a counted reference; a null handler gives a stream without one.
  PStream(PStreamHdl* handler);
  PStream(const PStream& other);
  // Takes the other handler before dropping its own, so self-assignment is
  // safe, and copies the byte ordering. Closing errors of a handler dropped
  // here reach the caller.
  PStream& operator=(const PStream& other);
  // Drops the reference. A closing error of the last reference has been
  // signalled through the protections by then and goes no further: a
  // destructor cannot pass it on.
  ~PStream() override;

  // Each checks the handler first (error 1220 without one) and then calls the
  // handler's operation of the same name.
  void Open(ULONG mode);
  void SetOpenMode(ULONG mode);
  void Close();
  void Flush();
  ULONG Read(char* buffer, ULONG count, ULONG itemSize);
  ULONG Write(const char* buffer, ULONG count, ULONG itemSize);
  void SetSize(unsigned __int64 size);
  void SetPos(TypSeekMode mode, unsigned __int64 offset);
  void MoveTo(unsigned __int64 offset);      // SeekFromStart
  void MoveFromEnd(unsigned __int64 offset); // SeekFromEnd
  void MoveFwd(unsigned __int64 offset);     // SeekFwd
  void MoveBack(unsigned __int64 offset);    // SeekBack

  // Queries that answer 0 or false without a handler, and raise nothing.
  ULONG OpenMode() const;
  unsigned __int64 GetSize() const;
  unsigned __int64 GetPos() const;
  bool IsAtEnd() const;
  bool IsOpened() const;
  bool IsReadable() const;
  bool IsWritable() const;

  // The handler's PrepareError of the error, or an unchanged copy without a
  // handler.
  PError PrepareError(PError& error) const;

  unsigned short GetByteOrdering() const { return m_byteOrdering; }
  // Accepts exactly 0x4949 and 0x4D4D; anything else raises 1233 (severity
  // 29) and leaves the ordering as it was.
  void SetByteOrdering(unsigned short ordering);
  // Reads one 2-byte item raw and applies it with SetByteOrdering.
  void ReadByteOrdering();
  // Writes the ordering as two raw bytes: "II" or "MM".
  void WriteByteOrdering();
  ULONG WriteSizeByteOrdering() const { return 2; }

  // Typed values in the persisted format. Integers of 2, 4 and 8 bytes go
  // in the stream's byte ordering ("II" least significant byte first, "MM"
  // most significant first); single bytes and text are never reordered.
  // Deliberate and kept: a bool takes two bytes; floating-point numbers are
  // decimal text in a counted string; an identifier is two 8-byte halves,
  // each ordered on its own. No typed member checks what it reads: a short
  // read leaves the rest of the target as the handler left it.
  void Write(char value);
  void Write(short value);
  void Write(LONG value);
  void Write(const __int64& value);
  void Write(bool value);
  void Write(float value, unsigned char digits);
  void Write(double value, unsigned char digits);
  // A counted string: 4-byte byte length, then the multibyte bytes.
  void Write(const PString& text);
  // A text without a count wraps in a PString rather than turning into a
  // bool, which is what a bare string literal would otherwise become.
  void Write(const char* text);
  // The multibyte bytes, then the terminator; no length.
  void Write(const PString& text, char terminator);
  void Write(const PUniversalID& id);
  void Write(const PTime& time);
  void Write(const PUTDate& date);

  void Read(char* value);
  void Read(short* value);
  void Read(LONG* value);
  void Read(__int64* value);
  void Read(float* value);
  void Read(double* value);
  void Read(bool* value);
  // Reads a 4-byte length and that many bytes, which become the target's
  // multibyte text; a length of 0 makes it empty. The target's own handler
  // may be refilled with them when it is the library's multibyte handler,
  // unshared and of the capacity a new one would get; with an installed
  // memory manager the blocks are asked for as always.
  void Read(PString* text);
  // Reads up to the terminator, which is consumed; reading also stops where
  // the data end. The target is given the bytes as Read(PString*) gives them.
  void Read(PString* text, char terminator);
  void Read(PUniversalID* id);
  void Read(PTime* time);
  void Read(PUTDate* date);

  void WriteArray(const char* values, ULONG count);
  void WriteArray(const short* values, ULONG count);
  void WriteArray(const LONG* values, ULONG count);
  void WriteArray(const __int64* values, ULONG count);
  void WriteArray(const float* values, ULONG count, unsigned char digits);
  void WriteArray(const double* values, ULONG count, unsigned char digits);
  void ReadArray(char* values, ULONG count);
  void ReadArray(short* values, ULONG count);
  void ReadArray(LONG* values, ULONG count);
  void ReadArray(__int64* values, ULONG count);
  void ReadArray(float* values, ULONG count);
  void ReadArray(double* values, ULONG count);

  // What Write would put on the stream, in bytes, without writing.
  ULONG WriteSize(char value) const;
  ULONG WriteSize(short value) const;
  ULONG WriteSize(LONG value) const;
  ULONG WriteSize(const __int64& value) const;
  ULONG WriteSize(const PUniversalID& id) const;
  ULONG WriteSize(float value, unsigned char digits) const;
  ULONG WriteSize(double value, unsigned char digits) const;
  ULONG WriteSize(const PString& text) const;
  ULONG WriteSize(const PString& text, char terminator) const;
  ULONG WriteSizeArray(const char* values, ULONG count) const;
  ULONG WriteSizeArray(const short* values, ULONG count) const;
  ULONG WriteSizeArray(const LONG* values, ULONG count) const;
  ULONG WriteSizeArray(const __int64* values, ULONG count) const;
  ULONG WriteSizeArray(const float* values, ULONG count, unsigned char digits) const;
  ULONG WriteSizeArray(const double* values, ULONG count, unsigned char digits) const;

  // The handler, without a reference; null for a stream without one.
  PStreamHdl* GetHandler() const { return m_handler; }

protected:
  // Raises 1220 (severity 33), prepared through PrepareError.
  void InvalidStreamNotification() const;

private:
  // Integers of `itemSize` bytes in the stream's byte ordering; both return
  // the handler's item count.
  ULONG WriteInts(const char* data, ULONG count, ULONG itemSize);
  ULONG ReadInts(char* data, ULONG count, ULONG itemSize);
  void AssignHandler(PStreamHdl* handler);
  // InvalidStreamNotification when there is no handler; true when there is
  // one to call.
  bool CheckHandler() const;

  PStreamHdl* m_handler;
  unsigned short m_byteOrdering;
};

// Copies GetSize() bytes of `source` (its whole size, read from wherever its
// position stands) into `destination`, in chunks of 2048 bytes. With `open`, the source is opened
// for reading and the destination with `mode` made write-only, and both are
// closed at the end - also when an error escapes the copy, which is then
// passed on.
//
// The progress hook may be null. Otherwise the copy reports in bytes, shifted
// right as often as the size needs to fit 32 bits: SetEndValue(size) first,
// then after each chunk SetCurrentValue(bytes copied before that chunk) and
// Continue(). The figure lags one chunk behind on purpose, and the last chunk
// is never reported: the caller starts the hook before and stops it after
// (Stop completes the range). A hook whose Continue raises - the
// cancellation error when its observer cancelled - ends the copy there; the
// destination then holds the chunks written so far, a prefix of the source.
QVBASE_API void GStreamDuplication(PStream& source, PStream& destination, bool open, ULONG mode,
                                   PProgressHook* hook);
