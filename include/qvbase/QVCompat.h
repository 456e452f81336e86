// QVCompat.h - Win32 and COM names on every target.
// Part of qvbase, the QVKernel foundation class library.
//
// The library's interfaces are defined in Win32 terms: 32-bit LONG and ULONG,
// 64-bit __int64, 16-byte GUIDs, HRESULT status values and the COM interfaces
// IUnknown, IPersist, ISequentialStream and IStream. On Windows every name here
// comes from the system headers, so they are exactly the platform's own. On
// other targets this header declares the same names with the same widths,
// layouts, virtual slot orders and constant values, so that code using them
// compiles and behaves the same everywhere.
//
// Everything here is plain data or an abstract interface: nothing is shared
// state, nothing needs locking.
#pragma once

#if defined(_WIN32)

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#include <objidl.h>
#include <ocidl.h>
#include <unknwn.h>

#else // !_WIN32

#include <qvbase/QVExport.h>

#include <cstdint>

// Integer widths of the Win32 ABI. "long" is never used directly: it is 64-bit
// on LP64 targets.
typedef std::int32_t LONG;
typedef std::uint32_t ULONG;
typedef std::uint32_t DWORD;
typedef std::uint16_t WORD;
typedef std::uint8_t BYTE;
typedef std::int32_t BOOL;
typedef std::uint32_t UINT;
typedef std::int32_t INT;
typedef LONG HRESULT;
typedef std::int64_t LONGLONG;
typedef std::uint64_t ULONGLONG;
typedef std::uintptr_t ULONG_PTR;
typedef std::intptr_t LONG_PTR;
typedef ULONG_PTR SIZE_T;
typedef DWORD LCID;
// A UTF-16 code unit, as on Windows.
typedef unsigned short WCHAR;
typedef WCHAR OLECHAR;
typedef OLECHAR* LPOLESTR;
typedef const OLECHAR* LPCOLESTR;

// MSVC's 64-bit integer keyword. A macro rather than a typedef so that
// "unsigned __int64" works as it does on Windows.
#ifndef __int64
#define __int64 long long
#endif

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

// The 16-byte identifier in its platform layout.
typedef struct _GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
} GUID;
typedef GUID IID;
typedef GUID CLSID;
typedef const IID& REFIID;
typedef const GUID& REFGUID;
typedef const CLSID& REFCLSID;

inline bool operator==(const GUID& a, const GUID& b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3)
    return false;
  for (int i = 0; i < 8; ++i)
    if (a.Data4[i] != b.Data4[i])
      return false;
  return true;
}
inline bool operator!=(const GUID& a, const GUID& b) { return !(a == b); }
inline bool IsEqualGUID(REFGUID a, REFGUID b) { return a == b; }
inline bool IsEqualIID(REFIID a, REFIID b) { return a == b; }
inline bool IsEqualCLSID(REFCLSID a, REFCLSID b) { return a == b; }

// Status values. The casts keep the Win32 bit patterns in a signed HRESULT.
#define QVCOMPAT_HR(x) (static_cast<HRESULT>(static_cast<std::uint32_t>(x)))
#define S_OK QVCOMPAT_HR(0x00000000u)
#define S_FALSE QVCOMPAT_HR(0x00000001u)
#define E_NOTIMPL QVCOMPAT_HR(0x80004001u)
#define E_NOINTERFACE QVCOMPAT_HR(0x80004002u)
#define E_POINTER QVCOMPAT_HR(0x80004003u)
#define E_ABORT QVCOMPAT_HR(0x80004004u)
#define E_FAIL QVCOMPAT_HR(0x80004005u)
#define E_UNEXPECTED QVCOMPAT_HR(0x8000FFFFu)
#define E_ACCESSDENIED QVCOMPAT_HR(0x80070005u)
#define E_HANDLE QVCOMPAT_HR(0x80070006u)
#define E_OUTOFMEMORY QVCOMPAT_HR(0x8007000Eu)
#define E_INVALIDARG QVCOMPAT_HR(0x80070057u)
#define CLASS_E_NOAGGREGATION QVCOMPAT_HR(0x80040110u)
#define CLASS_E_CLASSNOTAVAILABLE QVCOMPAT_HR(0x80040111u)
#define REGDB_E_CLASSNOTREG QVCOMPAT_HR(0x80040154u)
#define STG_E_INVALIDFUNCTION QVCOMPAT_HR(0x80030001u)
#define STG_E_FILENOTFOUND QVCOMPAT_HR(0x80030002u)
#define STG_E_ACCESSDENIED QVCOMPAT_HR(0x80030005u)
#define STG_E_INVALIDHANDLE QVCOMPAT_HR(0x80030006u)
#define STG_E_INSUFFICIENTMEMORY QVCOMPAT_HR(0x80030008u)
#define STG_E_INVALIDPOINTER QVCOMPAT_HR(0x80030009u)
#define STG_E_SEEKERROR QVCOMPAT_HR(0x80030019u)
#define STG_E_WRITEFAULT QVCOMPAT_HR(0x8003001Du)
#define STG_E_READFAULT QVCOMPAT_HR(0x8003001Eu)
#define STG_E_INVALIDPARAMETER QVCOMPAT_HR(0x80030057u)
#define STG_E_MEDIUMFULL QVCOMPAT_HR(0x80030070u)
#define STG_E_INVALIDFLAG QVCOMPAT_HR(0x800300FFu)
#define STG_E_REVERTED QVCOMPAT_HR(0x80030102u)
#define STG_E_CANTSAVE QVCOMPAT_HR(0x80030103u)

#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)
#define HRESULT_CODE(hr) ((hr)&0xFFFF)
#define HRESULT_FACILITY(hr) (((hr) >> 16) & 0x1FFF)
#define FACILITY_WIN32 7
inline HRESULT HRESULT_FROM_WIN32(ULONG x) {
  return static_cast<HRESULT>(x) <= 0
             ? static_cast<HRESULT>(x)
             : static_cast<HRESULT>((x & 0x0000FFFFu) | (FACILITY_WIN32 << 16) | 0x80000000u);
}

// Calling-convention decorations vanish outside 32-bit Windows.
#define STDMETHODCALLTYPE
#define WINAPI
#define STDMETHOD(method) virtual HRESULT STDMETHODCALLTYPE method
#define STDMETHOD_(type, method) virtual type STDMETHODCALLTYPE method

// 64-bit values as the COM stream interfaces pass them.
typedef union _LARGE_INTEGER {
  struct {
    DWORD LowPart;
    LONG HighPart;
  } u;
  LONGLONG QuadPart;
} LARGE_INTEGER;
// An unsigned 64-bit integer and its two 32-bit halves, as Win32 declares it.
typedef union _ULARGE_INTEGER {
  struct {
    DWORD LowPart;
    DWORD HighPart;
  } u;
  ULONGLONG QuadPart;
} ULARGE_INTEGER;

// 100-nanosecond ticks since 1601-01-01, split in two 32-bit halves.
typedef struct _FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
} FILETIME;

// A date and time broken into fields, as Win32 declares it.
typedef struct _SYSTEMTIME {
  WORD wYear;
  WORD wMonth;
  WORD wDayOfWeek;
  WORD wDay;
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
} SYSTEMTIME;

// What IStream::Stat answers about a stream, as COM declares it.
typedef struct tagSTATSTG {
  LPOLESTR pwcsName;
  DWORD type;
  ULARGE_INTEGER cbSize;
  FILETIME mtime;
  FILETIME ctime;
  FILETIME atime;
  DWORD grfMode;
  DWORD grfLocksSupported;
  CLSID clsid;
  DWORD grfStateBits;
  DWORD reserved;
} STATSTG;

enum tagSTREAM_SEEK { STREAM_SEEK_SET = 0, STREAM_SEEK_CUR = 1, STREAM_SEEK_END = 2 };
enum tagSTGTY { STGTY_STORAGE = 1, STGTY_STREAM = 2, STGTY_LOCKBYTES = 3, STGTY_PROPERTY = 4 };
enum tagSTATFLAG { STATFLAG_DEFAULT = 0, STATFLAG_NONAME = 1, STATFLAG_NOOPEN = 2 };
enum tagSTGC {
  STGC_DEFAULT = 0,
  STGC_OVERWRITE = 1,
  STGC_ONLYIFCURRENT = 2,
  STGC_DANGEROUSLYCOMMITMERELYTODISKCACHE = 4,
  STGC_CONSOLIDATE = 8
};
enum tagLOCKTYPE { LOCK_WRITE = 1, LOCK_EXCLUSIVE = 2, LOCK_ONLYONCE = 4 };

// The COM interfaces, with the virtual slot order of their Windows
// declarations. Like the originals they have no virtual destructor: objects
// behind them are released through Release().
struct IUnknown {
  STDMETHOD(QueryInterface)(REFIID riid, void** object) = 0;
  STDMETHOD_(ULONG, AddRef)() = 0;
  STDMETHOD_(ULONG, Release)() = 0;
};

// The COM interface of persistent objects (its class identifier).
struct IPersist : public IUnknown {
  STDMETHOD(GetClassID)(CLSID* classId) = 0;
};

// The COM interface of sequential reads and writes.
struct ISequentialStream : public IUnknown {
  STDMETHOD(Read)(void* buffer, ULONG count, ULONG* read) = 0;
  STDMETHOD(Write)(const void* buffer, ULONG count, ULONG* written) = 0;
};

// The COM stream interface, with the slot order of the Windows headers.
struct IStream : public ISequentialStream {
  STDMETHOD(Seek)(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) = 0;
  STDMETHOD(SetSize)(ULARGE_INTEGER newSize) = 0;
  STDMETHOD(CopyTo)
  (IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read, ULARGE_INTEGER* written) = 0;
  STDMETHOD(Commit)(DWORD flags) = 0;
  STDMETHOD(Revert)() = 0;
  STDMETHOD(LockRegion)(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD lockType) = 0;
  STDMETHOD(UnlockRegion)(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD lockType) = 0;
  STDMETHOD(Stat)(STATSTG* stat, DWORD flags) = 0;
  STDMETHOD(Clone)(IStream** clone) = 0;
};

typedef IUnknown* LPUNKNOWN;
typedef IStream* LPSTREAM;

// The standard interface identifiers.
inline constexpr IID IID_IUnknown = {
    0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID IID_IPersist = {
    0x0000010C, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID IID_IStream = {
    0x0000000C, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID IID_ISequentialStream = {
    0x0C733A30, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77, 0x3D}};
inline constexpr GUID GUID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};

// Context flags of CoCreateInstance.
#define CLSCTX_INPROC_SERVER 0x1
#define CLSCTX_INPROC_HANDLER 0x2
#define CLSCTX_LOCAL_SERVER 0x4
#define CLSCTX_REMOTE_SERVER 0x10
#define CLSCTX_INPROC (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER)
#define CLSCTX_ALL                                                                                 \
  (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER)

// Thread-local storage slots, with the Win32 meanings: TlsAlloc gives a new
// slot index (TLS_OUT_OF_INDEXES when none is left) whose value is null in
// every thread; TlsGetValue and TlsSetValue read and set the calling
// thread's value; TlsFree releases the index and forgets every thread's
// value. TlsFree and TlsSetValue answer FALSE for an index that is not
// allocated, and TlsGetValue answers null. Elsewhere than on Windows they are
// the library's, over the system's thread-specific data; failures are told
// by the results alone (there is no GetLastError). The library itself never
// allocates a slot: they are for applications (see NThreadStorage).
typedef void* LPVOID;
#define TLS_OUT_OF_INDEXES (static_cast<DWORD>(0xFFFFFFFFu))
QVBASE_API DWORD TlsAlloc();
QVBASE_API BOOL TlsFree(DWORD index);
QVBASE_API LPVOID TlsGetValue(DWORD index);
QVBASE_API BOOL TlsSetValue(DWORD index, LPVOID value);

// A wait without time limit, in milliseconds (the Win32 constant).
#define INFINITE 0xFFFFFFFFu

#endif // _WIN32

// Win32 error numbers the library and its tools name. On Windows they come
// from <winerror.h>; the values are the same everywhere.
#ifndef ERROR_SUCCESS
#define ERROR_SUCCESS 0L
#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_ACCESS_DENIED 5L
#define ERROR_INVALID_HANDLE 6L
#define ERROR_NOT_ENOUGH_MEMORY 8L
#define ERROR_OUTOFMEMORY 14L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_INSUFFICIENT_BUFFER 122L
#define ERROR_BAD_PATHNAME 161L
#define ERROR_MORE_DATA 234L
#define ERROR_NO_MORE_ITEMS 259L
#define ERROR_BADDB 1009L
#define ERROR_BADKEY 1010L
#define ERROR_CANTOPEN 1011L
#define ERROR_CANTREAD 1012L
#define ERROR_CANTWRITE 1013L
#define ERROR_KEY_DELETED 1018L
#define ERROR_CANCELLED 1223L
#define ERROR_RETRY 1237L
#define ERROR_NONE_MAPPED 1332L
#endif
