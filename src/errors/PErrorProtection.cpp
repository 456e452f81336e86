// PErrorProtection.cpp - scoped protections: how every signalled error is handled.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>

#include "errors/ErrorTrace.h"

namespace {

// The innermost installed protection: one chain for the whole process.
PErrorProtection* gChainHead = nullptr;

bool IsControlCode(int code) {
  return code >= kErrControlRetry && code <= kErrControlQuitApplication;
}

// The text of a protection made from a string resource: loaded when it is
// still empty at preparation time, then kept. A protection made from a text
// has no valid resource and keeps its text, empty or not.
const PMBString& CachedText(NResourceString& resource, PMBString& cached) {
  if (cached.IsEmpty() && resource.IsValid())
    cached = resource;
  return cached;
}

// Runs one step of an external handler: the error goes out as a fresh error
// object and comes back, possibly rewritten, into `error`.
template <typename Step>
void ThroughHandler(PError& error, Step&& step) {
  IQVError* carrier = error.QueryIQVError();
  if (!carrier)
    return;
  step(carrier);
  error.From(carrier);
  carrier->Release();
}

} // namespace

// ---------------------------------------------------------------------------
// PErrorProtection

PErrorProtection::PErrorProtection(bool set) : m_set(0), m_next(nullptr), m_previous(nullptr) {
  if (set)
    Set();
}

PErrorProtection::PErrorProtection(const PErrorProtection& other)
    : PRoot(other), m_set(0), m_next(nullptr), m_previous(nullptr) {}

PErrorProtection& PErrorProtection::operator=(const PErrorProtection&) { return *this; }

PErrorProtection::~PErrorProtection() { Unset(); }

void PErrorProtection::Set() {
  if (m_set)
    return;
  m_set = 1;
  m_previous = gChainHead;
  m_next = nullptr;
  if (m_previous)
    m_previous->m_next = this;
  gChainHead = this;
}

void PErrorProtection::Unset() {
  if (!m_set)
    return;
  m_set = 0;
  if (m_previous)
    m_previous->m_next = m_next;
  if (m_next)
    m_next->m_previous = m_previous;
  else
    gChainHead = m_previous;
  m_next = nullptr;
  m_previous = nullptr;
}

PErrorProtection* PErrorProtection::Innermost() { return gChainHead; }

TypErrorHandlingEnum PErrorProtection::DisplayError(PError& error, ULONG mask) {
  return m_previous ? m_previous->DisplayError(error, mask) : ErrorHandlingNone;
}

PError PErrorProtection::PrepareError(PError& error) {
  return m_previous ? m_previous->PrepareError(error) : PError(error);
}

void PErrorProtection::PrepareDisplayMask(PError& error, ULONG* mask) const {
  if (m_previous)
    m_previous->PrepareDisplayMask(error, mask);
}

// ---------------------------------------------------------------------------
// The protection classes

PErrorRetryProtection::PErrorRetryProtection(bool set) : PErrorProtection(set) {}

void PErrorRetryProtection::PrepareDisplayMask(PError& error, ULONG* mask) const {
  PErrorProtection::PrepareDisplayMask(error, mask);
  *mask |= kErrorMaskRetry;
}

PErrorHook::~PErrorHook() = default;

PErrorHookProtection::PErrorHookProtection(PErrorHook* hook, bool set)
    : PErrorProtection(false), m_hook(hook) {
  // Linked only once fully built, so a signal meanwhile never meets it half made.
  if (set)
    Set();
}

TypErrorHandlingEnum PErrorHookProtection::DisplayError(PError& error, ULONG mask) {
  return m_hook ? m_hook->DisplayError(error, mask) : ErrorHandlingNone;
}

PFullErrorProtection::PFullErrorProtection(bool set) : PErrorHookProtection(nullptr, set) {}

PErrorIntInfoProtection::PErrorIntInfoProtection(const char* key, int value, bool set)
    : PErrorProtection(false), m_key(key), m_value(value) {
  if (set)
    Set();
}

PError PErrorIntInfoProtection::PrepareError(PError& error) {
  error.SetIntegerInfo(m_key, m_value);
  return PError(error);
}

PErrorStringInfoProtection::PErrorStringInfoProtection(const char* key, const PMBString& value,
                                                       bool set)
    : PErrorProtection(false), m_key(key), m_cachedValue(value) {
  if (set)
    Set();
}

PErrorStringInfoProtection::PErrorStringInfoProtection(const char* key,
                                                       const NResourceString& value, bool set)
    : PErrorProtection(false), m_key(key), m_value(value) {
  if (set)
    Set();
}

PError PErrorStringInfoProtection::PrepareError(PError& error) {
  error.SetStringInfo(m_key, CachedText(m_value, m_cachedValue));
  return PError(error);
}

// The name protections: each names its scope in the error, then lets the
// protections outside add theirs, and narrows the offered handlings to the
// ones that make sense at its level.

PApplicationErrorProtection::PApplicationErrorProtection(const char* name, bool set)
    : PApplicationErrorProtection(PMBString(name, true), set) {}

PApplicationErrorProtection::PApplicationErrorProtection(const PMBString& name, bool set)
    : PErrorProtection(false), m_cachedName(name) {
  if (set)
    Set();
}

PApplicationErrorProtection::PApplicationErrorProtection(const NResourceString& name, bool set)
    : PErrorProtection(false), m_name(name) {
  if (set)
    Set();
}

PError PApplicationErrorProtection::PrepareError(PError& error) {
  error.SetStringInfo("appname", CachedText(m_name, m_cachedName));
  return PErrorProtection::PrepareError(error);
}

void PApplicationErrorProtection::PrepareDisplayMask(PError& error, ULONG* mask) const {
  PErrorProtection::PrepareDisplayMask(error, mask);
  *mask = (*mask & ~(kErrorMaskRetry | kErrorMaskItem | kErrorMaskAction)) | kErrorMaskApplication;
}

PActionErrorProtection::PActionErrorProtection(const char* name, bool set)
    : PActionErrorProtection(PMBString(name, true), set) {}

PActionErrorProtection::PActionErrorProtection(const PMBString& name, bool set)
    : PErrorProtection(false), m_cachedName(name) {
  if (set)
    Set();
}

PActionErrorProtection::PActionErrorProtection(const NResourceString& name, bool set)
    : PErrorProtection(false), m_name(name) {
  if (set)
    Set();
}

PError PActionErrorProtection::PrepareError(PError& error) {
  error.SetStringInfo("actionname", CachedText(m_name, m_cachedName));
  return PErrorProtection::PrepareError(error);
}

void PActionErrorProtection::PrepareDisplayMask(PError& error, ULONG* mask) const {
  PErrorProtection::PrepareDisplayMask(error, mask);
  *mask = (*mask & ~(kErrorMaskRetry | kErrorMaskItem)) | kErrorMaskAction;
}

PItemErrorProtection::PItemErrorProtection(const char* name, bool set)
    : PItemErrorProtection(PMBString(name, true), set) {}

PItemErrorProtection::PItemErrorProtection(const PMBString& name, bool set)
    : PErrorProtection(false), m_cachedName(name) {
  if (set)
    Set();
}

PItemErrorProtection::PItemErrorProtection(const NResourceString& name, bool set)
    : PErrorProtection(false), m_name(name) {
  if (set)
    Set();
}

PError PItemErrorProtection::PrepareError(PError& error) {
  error.SetStringInfo("itemname", CachedText(m_name, m_cachedName));
  return PErrorProtection::PrepareError(error);
}

void PItemErrorProtection::PrepareDisplayMask(PError& error, ULONG* mask) const {
  PErrorProtection::PrepareDisplayMask(error, mask);
  *mask = (*mask & ~kErrorMaskRetry) | kErrorMaskItem;
}

PQVErrorHandlerProtection::PQVErrorHandlerProtection(void* object, bool set)
    : PErrorProtection(false), m_handler(nullptr) {
  if (object) {
    void* handler = nullptr;
    if (SUCCEEDED(static_cast<IUnknown*>(object)->QueryInterface(IID_IQVErrorHandler, &handler)))
      m_handler = static_cast<IQVErrorHandler*>(handler);
  }
  if (set)
    Set();
}

PQVErrorHandlerProtection::PQVErrorHandlerProtection(const PQVErrorHandlerProtection& other)
    : PErrorProtection(other), m_handler(other.m_handler) {
  if (m_handler)
    m_handler->AddRef();
}

PQVErrorHandlerProtection&
PQVErrorHandlerProtection::operator=(const PQVErrorHandlerProtection& other) {
  if (other.m_handler)
    other.m_handler->AddRef();
  if (m_handler)
    m_handler->Release();
  m_handler = other.m_handler;
  return *this;
}

PQVErrorHandlerProtection::~PQVErrorHandlerProtection() {
  Unset();
  if (m_handler)
    m_handler->Release();
}

TypErrorHandlingEnum PQVErrorHandlerProtection::DisplayError(PError& error, ULONG mask) {
  if (!m_handler)
    return ErrorHandlingNone;
  LONG answer = ErrorHandlingNone;
  ThroughHandler(error,
                 [&](IQVError* carrier) { answer = m_handler->DisplayError(carrier, mask); });
  return static_cast<TypErrorHandlingEnum>(answer);
}

PError PQVErrorHandlerProtection::PrepareError(PError& error) {
  if (m_handler)
    ThroughHandler(error, [&](IQVError* carrier) { m_handler->PrepareError(carrier); });
  return PError(error);
}

void PQVErrorHandlerProtection::PrepareDisplayMask(PError& error, ULONG* mask) const {
  if (m_handler)
    ThroughHandler(error, [&](IQVError* carrier) { m_handler->PrepareDisplayMask(carrier, mask); });
}

// ---------------------------------------------------------------------------
// PErrorProtectionStatus

PErrorProtectionStatus::PErrorProtectionStatus() : m_top(gChainHead) {}

PError PErrorProtectionStatus::PrepareError(PError& error) {
  return m_top ? m_top->PrepareError(error) : PError(error);
}

void PErrorProtectionStatus::PrepareDisplayMask(PError& error, ULONG* mask) const {
  if (error.Code() == kErrNone || !m_top)
    return;
  *mask = kErrorMaskIgnore;
  m_top->PrepareDisplayMask(error, mask);
  // A severity is also the mask of the handlings it allows.
  *mask &= static_cast<ULONG>(error.Severity());
}

TypErrorHandlingEnum PErrorProtectionStatus::DisplayError(PError& error) {
  if (error.Code() == kErrNone || !m_top)
    return ErrorHandlingNone;
  ULONG mask = kErrorMaskIgnore;
  m_top->PrepareDisplayMask(error, &mask);
  mask &= static_cast<ULONG>(error.Severity());
  return m_top->DisplayError(error, mask);
}

TypErrorHandlingEnum PErrorProtectionStatus::DisplayError(PError& error, ULONG mask) {
  if (error.Code() == kErrNone || !m_top)
    return ErrorHandlingNone;
  return m_top->DisplayError(error, mask);
}

void PErrorProtectionStatus::SignalError(PError& error) {
  if (error.Code() == kErrNone)
    return;
  if (m_top)
    error = m_top->PrepareError(error);
  qvbase::errors::TraceErrorSignalled(error);
  // Control codes were handled where they were made: never displayed again.
  if (!IsControlCode(error.Code())) {
    TypErrorHandlingEnum handling = DisplayError(error);
    switch (handling) {
    case ErrorHandlingRetry:
    case ErrorHandlingItem:
    case ErrorHandlingAction:
    case ErrorHandlingApplication:
      error.SetIntegerInfo("waserror", error.Code());
      // Retry becomes kErrControlRetry, item kErrControlSkipItem, and so on.
      error.SetCode(handling - 1);
      qvbase::errors::TraceErrorTransformed(error);
      throw PError(error);
    case ErrorHandlingNone:
      break;
    default:
      // Ignored, or an answer outside the defined ones: the error is dropped.
      qvbase::errors::TraceErrorIgnored();
      return;
    }
  }
  // A warning that nobody handled is dropped; anything else is thrown.
  if (error.Severity() == ErrorSeverityWarning) {
    qvbase::errors::TraceErrorIgnored();
    return;
  }
  throw PError(error);
}

// ---------------------------------------------------------------------------
// PErrorDisplayMapper

PErrorDisplayMapper* PErrorDisplayMapper::theirFirst = nullptr;

PErrorDisplayMapper::PErrorDisplayMapper() : m_next(theirFirst), m_previous(nullptr) {
  if (theirFirst)
    theirFirst->m_previous = this;
  theirFirst = this;
}

PErrorDisplayMapper::~PErrorDisplayMapper() {
  if (m_previous)
    m_previous->m_next = m_next;
  else
    theirFirst = m_next;
  if (m_next)
    m_next->m_previous = m_previous;
}

bool PErrorDisplayMapper::MapError(int code, TypErrorSeverityEnum severity, PString* text) {
  for (PErrorDisplayMapper* mapper = theirFirst; mapper; mapper = mapper->m_next)
    if (mapper->Accepts(code) && mapper->Map(code, severity, text))
      return true;
  return false;
}
