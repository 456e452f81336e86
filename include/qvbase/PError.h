// PError.h - the library's one error value.
// Part of qvbase, the QVKernel foundation class library.
//
// A PError is thrown as the exception object of every failure, returned by
// value from preparation hooks and carried through the protections
// (PErrorProtection.h). It holds a code (0 = no error), a severity, the source
// position that raised it and an open set of named, typed details - the info
// set - that layers add as the error travels up.
//
// A PError is a cheap value: copies share one info set, and info set through
// any copy is seen by every copy. That is deliberate: details an outer layer
// adds stay visible to whoever still holds the error. Pointers returned by
// GetErrorInfo and EnumErrorInfo stay valid until that key is set again or the
// last sharing error goes away.
//
//   PError error(1220, ErrorSeverityError, "src\\PStream", 412);
//   error.SetIntegerInfo("position", 17);
//   int where = error.GetIntegerInfo("position", -1);   // 17
//
// Errors and their info sets belong to one thread at a time.
#pragma once

#include <qvbase/PErrorCodes.h>
#include <qvbase/PRoot.h>
#include <qvbase/PSmartData.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// Severities. The values are sparse on purpose: each one doubles as the mask
// of the handlings that may be offered for an error of that severity. The
// enumerations here are 32-bit with any value valid: other severities and
// tags can be stored and travel as they are.
enum TypErrorSeverityEnum : LONG {
  ErrorSeverityAbort = 25,
  ErrorSeverityError = 29,
  ErrorSeverityWarning = 31,
  ErrorSeverityFatal = 33,
};

// The type of one info entry's value.
enum TypErrorTagEnum : LONG {
  ErrorTagString = 0,  // the bytes of an 8-bit string, terminator included
  ErrorTagInteger = 1, // one 32-bit signed integer
};

// The component-object-model face of an error, so that errors cross
// component boundaries. Operations after IUnknown's, in slot order.
struct IQVError : public IUnknown {
  STDMETHOD_(LONG, GetCode)() = 0;
  STDMETHOD_(LONG, GetSeverity)() = 0;
  STDMETHOD_(ULONG, GetLine)() = 0;
  STDMETHOD_(const char*, GetFile)() = 0;
  STDMETHOD(SetError)(LONG code, LONG severity, ULONG line, const char* file) = 0;
  STDMETHOD(SetCode)(LONG code) = 0;
  STDMETHOD(SetSeverity)(LONG severity) = 0;
  STDMETHOD(SetLine)(ULONG line) = 0;
  STDMETHOD(SetFile)(const char* file) = 0;
  STDMETHOD(SetInfo)(const char* key, LONG tag, const void* value, ULONG size) = 0;
  STDMETHOD_(BOOL, GetInfo)(const char* key, LONG tag, const void** value, ULONG* size) = 0;
  STDMETHOD_(ULONG, GetInfoCount)() = 0;
  STDMETHOD(ClearInfo)() = 0;
  // Same index contract as PError::EnumErrorInfo.
  STDMETHOD_(BOOL, EnumInfo)(ULONG* index, const char** key, LONG* tag) = 0;
};

// {6F4C2A10-5B7E-4D39-9A61-0C8E2F7D13B5}
inline constexpr IID IID_IQVError = {
    0x6F4C2A10, 0x5B7E, 0x4D39, {0x9A, 0x61, 0x0C, 0x8E, 0x2F, 0x7D, 0x13, 0xB5}};

class PErrorInfoData;
class PMBString;

// The handle an error holds on its info set.
class QVBASE_API PErrorInfoHandle : public PSmartPtr {
public:
  PErrorInfoHandle();
  PErrorInfoHandle(const PErrorInfoHandle& other);
  PErrorInfoHandle& operator=(const PErrorInfoHandle& other);
  ~PErrorInfoHandle() override;

  PErrorInfoData* Info() const;
  void Reset(PErrorInfoData* data);
};

// The library's one error value: code, severity, source, line and named
// information, shared by its copies.
class QVBASE_API PError : public PRoot {
public:
  // Code 0, severity 31 (warning).
  PError();
  // Severity 25 (abort). Deliberately not the default constructor's 31.
  PError(int code);
  PError(int code, TypErrorSeverityEnum severity);
  // The raising form; `file` is stored as given (a static text).
  PError(int code, TypErrorSeverityEnum severity, const char* file, ULONG line);
  // Copies share the info set.
  PError(const PError& other);
  PError(const PError& other, TypErrorSeverityEnum severity);
  // Re-raises another layer's error under this layer's position.
  PError(const PError& other, TypErrorSeverityEnum severity, const char* file, ULONG line);
  PError& operator=(const PError& other);
  ~PError() override;

  int Code() const { return m_code; }
  operator int() const { return m_code; }
  TypErrorSeverityEnum Severity() const { return m_severity; }
  const char* File() const { return m_file; }
  ULONG Line() const { return m_line; }
  void SetCode(int code) { m_code = code; }
  void SetSeverity(TypErrorSeverityEnum severity) { m_severity = severity; }
  void SetFile(const char* file) { m_file = file; }
  void SetLine(ULONG line) { m_line = line; }

  // True when the code is 0.
  bool operator!() const { return m_code == 0; }
  bool operator==(int code) const { return m_code == code; }
  bool operator!=(int code) const { return m_code != code; }
  // Codes only: severity, position and info are not compared.
  bool operator==(const PError& other) const { return m_code == other.m_code; }
  bool operator!=(const PError& other) const { return m_code != other.m_code; }

  // Replaces any entry of that key, whatever its tag, by a new one at the end
  // of the order holding a private copy of `size` bytes.
  void SetErrorInfo(const char* key, TypErrorTagEnum tag, const void* data, ULONG size);
  // False when there is no entry of that key and tag; else the entry's value
  // (owned by the entry) and size.
  bool GetErrorInfo(const char* key, TypErrorTagEnum tag, const void** data, ULONG* size) const;
  bool HasErrorInfo(const char* key, TypErrorTagEnum tag) const;
  // The number of entries.
  ULONG EnumErrorInfo() const;
  // Reports entry `index` and advances `index`. Deliberately, the last entry
  // is reported with true and leaves `index` at 0xFFFFFFFF, so the call after
  // it returns false: loops run `while (error.EnumErrorInfo(i, &k, &t))`.
  bool EnumErrorInfo(ULONG& index, const char** key, TypErrorTagEnum* tag) const;

  void SetIntegerInfo(const char* key, int value);
  int GetIntegerInfo(const char* key, int defaultValue) const;
  // Stores the text with its terminator (an empty string stores 0 bytes).
  void SetStringInfo(const char* key, const PMBString& value);
  PMBString GetStringInfo(const char* key, const char* defaultText) const;
  bool HasStringInfo(const char* key) const;
  bool HasIntegerInfo(const char* key) const;

  // The display text before formatting: string info "displaystring", else
  // what the display mappers make of the code (then kept as
  // "displaystring", so the mappers are asked once), else empty.
  PMBString ObtainUnformatedDisplayString();
  // Fills the ^name^ parameters of `format` from the info (strings as they
  // are, integers in signed decimal), then ^errorcode^, ^errorline^ and
  // ^errorfile^ from the error itself. Unknown parameters stay.
  PMBString MakeDisplayString(const PMBString& format);
  PMBString GetDisplayString();
  // Writes the display text (or "No Error", or the info entries when there
  // is no text) through `output`; a null output means the debug output
  // method, which is null in this library, so nothing is written.
  void DbgDisplayOutput(void (*output)(const char*)) const;
  // Writes "file(line): severity code: " and then the display output.
  void DbgOutput(void (*output)(const char*)) const;

  // A new error object carrying this error, with one reference for the
  // caller; null when it cannot be allocated.
  IQVError* QueryIQVError() const;
  // Writes this error, info included, into `target` (nothing for null).
  void To(IQVError* target) const;
  // Replaces this error by the contents of `source`; a null source gives
  // code 0, severity 29, line 0 and an empty file text.
  void From(IQVError* source);

private:
  int m_code;
  TypErrorSeverityEnum m_severity;
  const char* m_file;
  ULONG m_line;
  PErrorInfoHandle m_info;
};
