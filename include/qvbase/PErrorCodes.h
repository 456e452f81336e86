// PErrorCodes.h - the named codes of the errors the library raises.
// Part of qvbase, the QVKernel foundation class library.
//
// Every PError the library raises carries one of these codes; the numbers are
// part of the library's contract (applications compare against them, and
// HResultFromPError maps some of them to HRESULTs), the names are the ones to
// write in code:
//
//   try { stream.MoveTo(offset); }
//   catch (const PError& e) {
//     if (e.Code() != kErrStreamSeekPastEnd) throw;
//     ...
//   }
//
// One number may have several names when families use it for different
// failures (1221, 1233, -1, 3); each name says which. The severity of each
// raise is given by the raising family and documented in its header.
#pragma once

// ---------------------------------------------------------------------------
// No error, and the control codes a protection throws instead of an error
// when its hook chooses a handling.
constexpr int kErrNone = 0;
constexpr int kErrControlRetry = 1;           // start the failed operation again
constexpr int kErrControlSkipItem = 2;        // give up the current item
constexpr int kErrControlAbortAction = 3;     // give up the current action
constexpr int kErrControlQuitApplication = 4; // give up the application

// ---------------------------------------------------------------------------
// General failures.
constexpr int kErrNotImplemented = 1000;     // the operation is not offered (E_NOTIMPL)
constexpr int kErrInvalidArgument = 1001;    // an argument is out of its domain, e.g. identifier
                                             // text that does not parse (E_INVALIDARG)
constexpr int kErrNoInterface = 1002;        // an object does not offer the interface asked
                                             // for (E_NOINTERFACE)
constexpr int kErrMutexStillAttached = 1006; // a mutex destroyed while still initialised
constexpr int kErrOutOfMemory = 1007;        // a block could not be allocated (E_OUTOFMEMORY)
constexpr int kErrClassWithoutConstructor = 1009; // a dynamic class asked for an instance has
                                                  // no constructor
constexpr int kErrNullPointer = 1011;             // a required pointer is null (E_POINTER)

// ---------------------------------------------------------------------------
// Time and dates.
constexpr int kErrDateBreakdown = 1200;  // a date or time cannot be broken down or formatted
constexpr int kErrDateConversion = 1201; // the platform's date conversion failed

// ---------------------------------------------------------------------------
// Strings.
constexpr int kErrStringCharOutOfRange = 1210;     // a character outside the handler's range
constexpr int kErrStringUnicodeNotSettable = 1211; // a narrow character with no Unicode
                                                   // translation, set into a Unicode handler
constexpr int kErrStringBadHexDigit = 1212;        // a character that is not a hexadecimal digit

// ---------------------------------------------------------------------------
// Streams and their handlers.
constexpr int kErrStreamNoHandler = 1220;       // an operation needs a handler; the stream has none
constexpr int kErrStreamOpenModeInvalid = 1221; // an open mode with neither bit, a read-only
                                                // stream opened in another mode, or a memory
                                                // stream opened to read with nothing to read
constexpr int kErrStreamOpenModeNotExact = 1222; // a section opened with a mode other than
                                                 // exactly read or exactly write, or its mode
                                                 // changed while open; a null stream opened
                                                 // or set to a mode with the read bit
constexpr int kErrStreamClosed = 1223;           // an operation on a closed stream
constexpr int kErrStreamAlreadyOpen = 1224;      // opened, or re-identified, while open
constexpr int kErrStreamBadSeekMode = 1225;      // a seek mode other than the four defined
constexpr int kErrStreamSeekPastEnd = 1227;      // a seek forward or absolute past the end
constexpr int kErrStreamSeekBeforeStart = 1228;  // a seek back before the start
constexpr int kErrStreamShortRead = 1229;        // the medium delivered fewer bytes than asked
constexpr int kErrStreamShortWrite = 1230;       // the medium took fewer bytes than given
constexpr int kErrStreamNotWritable = 1231;      // a write or resize on a stream not writable;
                                                 // a section opened for writing over a parent
                                                 // that is not writable
constexpr int kErrStreamNotReadable = 1232;      // a read on a stream not readable; a section
                                                 // opened for reading over a parent that is not
                                                 // readable, or read or written in the mode it
                                                 // was not opened for
constexpr int kErrStreamBadFormat = 1233;        // the bytes are not what was expected: an unknown
                                                 // byte ordering, a section of another identifier,
                                                 // a section header shorter than 28 bytes, data
                                                 // the system reports damaged

// ---------------------------------------------------------------------------
// Progress.
constexpr int kErrProgressCancelled = kErrControlAbortAction; // the user cancelled the work
constexpr int kErrProgressLevelMisuse = -1; // a progress level added twice, before the start,
                                            // or removed without one

// ---------------------------------------------------------------------------
// Resources.
constexpr int kErrResourceMissing = -1; // a resource that the module does not hold

// ---------------------------------------------------------------------------
// Platform errors, as WINError and OLEError map the system's numbers.
constexpr int kErrPlatformUnmapped = -2;    // a system number without a mapping
constexpr int kErrAccessDenied = 1300;      // access denied (E_ACCESSDENIED)
constexpr int kErrBadCredentials = 1301;    // a logon or password was refused
constexpr int kErrDeviceUnreachable = 2002; // the network or medium cannot be reached
constexpr int kErrDeviceGone = 2003;        // the device or network name went away
constexpr int kErrDeviceNotReady = 2005;    // the device is not ready, locked or busy
constexpr int kErrDiskFull = 2008;          // the disk is full
constexpr int kErrNoSuchDevice = 2009;      // no such drive, unit or network name
constexpr int kErrBadName = 2301;           // a file, path or computer name is malformed
constexpr int kErrNotFound = 2302;          // no such file, path or network path
constexpr int kErrAlreadyExists = 2303;     // the file or name exists already
constexpr int kErrCannotCreate = 2308;      // the file or directory cannot be made
constexpr int kErrTooManyOpenFiles = 2309;  // no handle left to open a file
constexpr int kErrDirectoryInUse = 2311;    // the directory is current or not empty
constexpr int kErrOpenFailed = 2312;        // the system could not open the file
constexpr int kErrNameTooLong = 2316;       // a name or buffer is too long
constexpr int kErrSharingViolation = 2317;  // another process holds the file or a lock on it
