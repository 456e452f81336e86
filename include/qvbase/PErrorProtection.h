// PErrorProtection.h - scoped protections: how every signalled error is handled.
// Part of qvbase, the QVKernel foundation class library.
//
// A protection is a scoped object, usually on the stack, that takes part in
// the fate of every error signalled while it is installed. Protections form
// one process-wide chain, innermost first. When code signals an error
// (PErrorProtectionStatus::SignalError), the chain
//   1. prepares it: adds context (names, details) - PrepareError;
//   2. says which handlings may be offered - a mask built outward-in and
//      narrowed by the error's severity - PrepareDisplayMask;
//   3. decides how it is handled - DisplayError, e.g. by asking a user
//      through a PErrorHook.
// The error is then thrown as it is, thrown transformed into a control code
// (1 retry, 2 give up the item, 3 give up the action, 4 give up the
// application), or dropped, in which case SignalError RETURNS: code after a
// signal must carry on sensibly.
//
//   PErrorRetryProtection retry(/*set=*/true);
//   MyHook hook;
//   PErrorHookProtection ask(&hook, /*set=*/true);
//   for (;;) {
//     try { Work(); break; }
//     catch (const PError& e) { if (e.Code() != 1) throw; }   // 1: retry
//   }
//
// Delivery is synchronous, on the signalling thread. The chain and the list
// of display mappers are process-wide and unlocked: install and remove
// protections on the thread that runs the application's main loop.
#pragma once

#include <qvbase/NResource.h>
#include <qvbase/PError.h>
#include <qvbase/PMBString.h>
#include <qvbase/PRoot.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

class PString;

// The answer of a display step.
enum TypErrorHandlingEnum : LONG {
  ErrorHandlingNone = 0,        // throw the error as it is (drop a warning)
  ErrorHandlingIgnore = 1,      // drop the error: SignalError returns
  ErrorHandlingRetry = 2,       // throw it as control code 1
  ErrorHandlingItem = 3,        // throw it as control code 2
  ErrorHandlingAction = 4,      // throw it as control code 3
  ErrorHandlingApplication = 5, // throw it as control code 4
};

// Mask bit (1 << h) offers handling h.
constexpr ULONG kErrorMaskIgnore = 1u << ErrorHandlingIgnore;
constexpr ULONG kErrorMaskRetry = 1u << ErrorHandlingRetry;
constexpr ULONG kErrorMaskItem = 1u << ErrorHandlingItem;
constexpr ULONG kErrorMaskAction = 1u << ErrorHandlingAction;
constexpr ULONG kErrorMaskApplication = 1u << ErrorHandlingApplication;

// A scoped protection: while it lives, it decides how signalled errors are
// handled (hooks, retries, messages, transformations).
class QVBASE_API PErrorProtection : public PRoot {
public:
  explicit PErrorProtection(bool set);
  // A copy has the original's own fields and is not linked.
  PErrorProtection(const PErrorProtection& other);
  PErrorProtection& operator=(const PErrorProtection& other);
  // Unlinks, wherever the protection stands in the chain.
  ~PErrorProtection() override;

  // The base forwards each step to the previous (outer) protection.
  virtual TypErrorHandlingEnum DisplayError(PError& error, ULONG mask);
  virtual PError PrepareError(PError& error);
  virtual void PrepareDisplayMask(PError& error, ULONG* mask) const;

  // Links the protection in as the innermost; setting twice does nothing.
  void Set();
  // Unlinks it, also out of order; the chain stays consistent.
  void Unset();
  PErrorProtection* Previous() const { return m_previous; }
  PErrorProtection* Next() const { return m_next; }
  bool IsSet() const { return m_set != 0; }

  // The innermost installed protection, or null.
  static PErrorProtection* Innermost();

private:
  int m_set;
  PErrorProtection* m_next;     // the next inner protection
  PErrorProtection* m_previous; // the next outer protection
};

// Offers retry (mask bit 4).
class QVBASE_API PErrorRetryProtection : public PErrorProtection {
public:
  explicit PErrorRetryProtection(bool set);
  void PrepareDisplayMask(PError& error, ULONG* mask) const override;
};

// The user-interface callback of a PErrorHookProtection.
class QVBASE_API PErrorHook : public PRoot {
public:
  ~PErrorHook() override;
  // Shows the error and the offered handlings (mask bits), returns the
  // user's choice.
  virtual TypErrorHandlingEnum DisplayError(PError& error, ULONG mask) = 0;
};

// Hands the display step to a hook (not owned); never forwards it.
class QVBASE_API PErrorHookProtection : public PErrorProtection {
public:
  PErrorHookProtection(PErrorHook* hook, bool set);
  TypErrorHandlingEnum DisplayError(PError& error, ULONG mask) override;

private:
  PErrorHook* m_hook;
};

// Answers every display step with "none" itself: protections outside it are
// never asked.
class QVBASE_API PFullErrorProtection : public PErrorHookProtection {
public:
  explicit PFullErrorProtection(bool set);
};

// Adds one integer detail to every error; does not forward the preparation.
class QVBASE_API PErrorIntInfoProtection : public PErrorProtection {
public:
  PErrorIntInfoProtection(const char* key, int value, bool set);
  PError PrepareError(PError& error) override;

private:
  const char* m_key;
  int m_value;
};

// The external error handler's interface.
struct IQVErrorHandler : public IUnknown {
  STDMETHOD(PrepareError)(IQVError* error) = 0;
  STDMETHOD(PrepareDisplayMask)(IQVError* error, ULONG* mask) = 0;
  STDMETHOD_(LONG, DisplayError)(IQVError* error, ULONG mask) = 0;
};

// {A4E6DCF2-F1C8-11D2-9F6F-0080C84E04AB}
inline constexpr IID IID_IQVErrorHandler = {
    0xA4E6DCF2, 0xF1C8, 0x11D2, {0x9F, 0x6F, 0x00, 0x80, 0xC8, 0x4E, 0x04, 0xAB}};

// Adds one string detail to every error; does not forward the preparation,
// so protections outside it add nothing. The text may be a string resource:
// it is loaded at the first PrepareError and kept (a string the module lacks
// gives its fallback text, kept the same way).
class QVBASE_API PErrorStringInfoProtection : public PErrorProtection {
public:
  PErrorStringInfoProtection(const char* key, const PMBString& value, bool set);
  PErrorStringInfoProtection(const char* key, const NResourceString& value, bool set);
  PError PrepareError(PError& error) override;

private:
  const char* m_key;
  NResourceString m_value; // the resource form; not valid for a text
  PMBString m_cachedValue; // the text, or the resource's once loaded
};

// Names the application in every error ("appname") and offers only giving
// up the application: retry, item and action are withdrawn, 32 is offered.
class QVBASE_API PApplicationErrorProtection : public PErrorProtection {
public:
  PApplicationErrorProtection(const char* name, bool set);
  PApplicationErrorProtection(const PMBString& name, bool set);
  // The name is loaded from the resource at the first PrepareError.
  PApplicationErrorProtection(const NResourceString& name, bool set);
  PError PrepareError(PError& error) override;
  void PrepareDisplayMask(PError& error, ULONG* mask) const override;

private:
  NResourceString m_name; // the resource form; not valid for a text
  PMBString m_cachedName; // the text, or the resource's once loaded
};

// Names the action ("actionname"): retry and item are withdrawn, giving up
// the action (16) is offered.
class QVBASE_API PActionErrorProtection : public PErrorProtection {
public:
  PActionErrorProtection(const char* name, bool set);
  PActionErrorProtection(const PMBString& name, bool set);
  // The name is loaded from the resource at the first PrepareError.
  PActionErrorProtection(const NResourceString& name, bool set);
  PError PrepareError(PError& error) override;
  void PrepareDisplayMask(PError& error, ULONG* mask) const override;

private:
  NResourceString m_name; // the resource form; not valid for a text
  PMBString m_cachedName; // the text, or the resource's once loaded
};

// Names the item ("itemname"): retry is withdrawn, giving up the item (8)
// is offered.
class QVBASE_API PItemErrorProtection : public PErrorProtection {
public:
  PItemErrorProtection(const char* name, bool set);
  PItemErrorProtection(const PMBString& name, bool set);
  // The name is loaded from the resource at the first PrepareError.
  PItemErrorProtection(const NResourceString& name, bool set);
  PError PrepareError(PError& error) override;
  void PrepareDisplayMask(PError& error, ULONG* mask) const override;

private:
  NResourceString m_name; // the resource form; not valid for a text
  PMBString m_cachedName; // the text, or the resource's once loaded
};

// Hands all three steps to an external error handler (a COM object). Without
// a handler it answers "none" and prepares nothing; it never forwards.
class QVBASE_API PQVErrorHandlerProtection : public PErrorProtection {
public:
  // `object` is queried (as IUnknown) for the handler interface
  // IID_IQVErrorHandler; on failure the protection has no handler.
  PQVErrorHandlerProtection(void* object, bool set);
  PQVErrorHandlerProtection(const PQVErrorHandlerProtection& other);
  PQVErrorHandlerProtection& operator=(const PQVErrorHandlerProtection& other);
  ~PQVErrorHandlerProtection() override;

  TypErrorHandlingEnum DisplayError(PError& error, ULONG mask) override;
  PError PrepareError(PError& error) override;
  void PrepareDisplayMask(PError& error, ULONG* mask) const override;

private:
  IQVErrorHandler* m_handler;
};

// A snapshot of the chain: the innermost protection when it was made.
class QVBASE_API PErrorProtectionStatus : public PRoot {
public:
  PErrorProtectionStatus();

  // The one path by which the library raises errors: prepares the error,
  // then throws it (as it is or transformed into a control code) or drops
  // it and returns.
  void SignalError(PError& error);
  PError PrepareError(PError& error);
  void PrepareDisplayMask(PError& error, ULONG* mask) const;
  TypErrorHandlingEnum DisplayError(PError& error);
  TypErrorHandlingEnum DisplayError(PError& error, ULONG mask);

private:
  PErrorProtection* m_top;
};

// Turns error codes into display texts. Mappers form one process-wide list,
// the most recently constructed first.
class QVBASE_API PErrorDisplayMapper : public PRoot {
public:
  PErrorDisplayMapper();
  PErrorDisplayMapper(const PErrorDisplayMapper&) = delete;
  PErrorDisplayMapper& operator=(const PErrorDisplayMapper&) = delete;
  // Unlinks.
  ~PErrorDisplayMapper() override;

  virtual bool Map(int code, TypErrorSeverityEnum severity, PString* text) = 0;
  virtual bool Accepts(int code) = 0;

  // Asks every mapper that accepts the code, newest first; true from the
  // first that produces a text.
  static bool MapError(int code, TypErrorSeverityEnum severity, PString* text);

  static PErrorDisplayMapper* theirFirst;

private:
  PErrorDisplayMapper* m_next;     // created before this one
  PErrorDisplayMapper* m_previous; // created after this one
};
