// Protections: the chain, preparation, display masks, the fate of a
// signalled error, external handlers and display mappers.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>

#include "errors/RaiseError.h"
#include "support/ErrorTestSupport.h"
#include "support/ResourceTestSupport.h"

#include "ResourceTestIds.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using qvbase::errors::Raise;
using qvbase::test::Caught;
using qvbase::test::CountingHook;
using qvbase::test::kNothingThrown;

TEST(PErrorProtection, WithoutProtectionsErrorsAreThrownAndWarningsDropped) {
  ASSERT_EQ(PErrorProtection::Innermost(), nullptr);
  PError thrown =
      Caught([] { Raise(PError(kErrStreamNoHandler, ErrorSeverityError, "src\\PStream", 9)); });
  EXPECT_EQ(thrown.Code(), kErrStreamNoHandler);
  EXPECT_EQ(thrown.Severity(), ErrorSeverityError);
  EXPECT_STREQ(thrown.File(), "src\\PStream");
  EXPECT_EQ(thrown.Line(), 9u);
  EXPECT_EQ(thrown.EnumErrorInfo(), 0u);
  PError warning(kErrStreamNoHandler, ErrorSeverityWarning);
  EXPECT_NO_THROW(PErrorProtectionStatus().SignalError(warning));
  PError none(0, ErrorSeverityFatal);
  EXPECT_NO_THROW(PErrorProtectionStatus().SignalError(none));
}

TEST(PErrorProtection, RetryAnswerThrowsControlCodeOneWithTheFormerCode) {
  CountingHook hook(ErrorHandlingRetry);
  PErrorRetryProtection retry(true);
  PErrorHookProtection protection(&hook, true);
  PError thrown = Caught([] { Raise(PError(kErrStreamSeekPastEnd, ErrorSeverityError)); });
  EXPECT_EQ(thrown.Code(), kErrControlRetry);
  EXPECT_EQ(thrown.GetIntegerInfo("waserror", 0), kErrStreamSeekPastEnd);
  EXPECT_EQ(hook.calls, 1);
  EXPECT_EQ(hook.lastMask, kErrorMaskRetry); // ignore is not for errors
}

TEST(PErrorProtection, EachAnswerBecomesItsControlCode) {
  struct Row {
    TypErrorHandlingEnum answer;
    int thrownCode; // kNothingThrown: dropped
  };
  const Row rows[] = {
      {ErrorHandlingNone, kErrStreamNoHandler},
      {ErrorHandlingIgnore, kNothingThrown},
      {ErrorHandlingRetry, kErrControlRetry},
      {ErrorHandlingItem, kErrControlSkipItem},
      {ErrorHandlingAction, kErrControlAbortAction},
      {ErrorHandlingApplication, kErrControlQuitApplication},
      {static_cast<TypErrorHandlingEnum>(9), kNothingThrown},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.answer);
    CountingHook hook(row.answer);
    PErrorHookProtection protection(&hook, true);
    PError thrown = Caught([] { Raise(PError(kErrStreamNoHandler, ErrorSeverityError)); });
    EXPECT_EQ(thrown.Code(), row.thrownCode);
  }
}

TEST(PErrorProtection, ControlCodesAreNeverDisplayedAgain) {
  CountingHook hook(ErrorHandlingRetry);
  PErrorHookProtection protection(&hook, true);
  PError thrown = Caught([] { Raise(PError(kErrControlAbortAction, ErrorSeverityError)); });
  EXPECT_EQ(thrown.Code(), kErrControlAbortAction);
  PError warning = Caught([] { Raise(PError(kErrControlAbortAction, ErrorSeverityWarning)); });
  EXPECT_EQ(warning.Code(), kNothingThrown); // dropped
  EXPECT_EQ(hook.calls, 0);
}

TEST(PErrorProtection, FullProtectionKeepsOuterHooksSilent) {
  CountingHook hook(ErrorHandlingRetry);
  PErrorHookProtection outer(&hook, true);
  PFullErrorProtection full(true);
  PError thrown = Caught([] { Raise(PError(kErrStreamNoHandler, ErrorSeverityError)); });
  EXPECT_EQ(thrown.Code(), kErrStreamNoHandler);
  EXPECT_EQ(hook.calls, 0);
}

TEST(PErrorProtection, UnsettingTheMiddleOneRelinksItsNeighbours) {
  PErrorProtection outer(true), middle(true), inner(true);
  EXPECT_EQ(inner.Previous(), &middle);
  middle.Unset();
  EXPECT_EQ(inner.Previous(), &outer);
  EXPECT_EQ(outer.Next(), &inner);
  EXPECT_EQ(PErrorProtection::Innermost(), &inner);
  EXPECT_FALSE(middle.IsSet());
  EXPECT_EQ(middle.Previous(), nullptr);
  inner.Unset();
  EXPECT_EQ(PErrorProtection::Innermost(), &outer);
  EXPECT_EQ(outer.Next(), nullptr);
}

TEST(PErrorProtection, SettingTwiceAndCopyingLeaveTheChainAlone) {
  PErrorProtection first(true);
  first.Set();
  EXPECT_EQ(PErrorProtection::Innermost(), &first);
  EXPECT_EQ(first.Previous(), nullptr);
  PErrorProtection copy(first);
  EXPECT_FALSE(copy.IsSet());
  EXPECT_EQ(PErrorProtection::Innermost(), &first);
}

TEST(PErrorProtection, ProtectionsLeaveTheChainWhenTheirScopeEnds) {
  {
    PErrorRetryProtection scoped(true);
    EXPECT_EQ(PErrorProtection::Innermost(), &scoped);
  }
  EXPECT_EQ(PErrorProtection::Innermost(), nullptr);
  try {
    PErrorRetryProtection scoped(true);
    Raise(PError(kErrStreamNoHandler, ErrorSeverityError));
  } catch (const PError&) {
  }
  EXPECT_EQ(PErrorProtection::Innermost(), nullptr);
}

TEST(PErrorProtection, StatusSeesOnlyProtectionsInstalledBeforeIt) {
  CountingHook hook(ErrorHandlingIgnore);
  PErrorProtectionStatus before;
  PErrorHookProtection protection(&hook, true);
  PError error(kErrStreamNoHandler, ErrorSeverityError);
  EXPECT_THROW(before.SignalError(error), PError);
  EXPECT_EQ(hook.calls, 0);
  PError again(kErrStreamNoHandler, ErrorSeverityError);
  EXPECT_NO_THROW(PErrorProtectionStatus().SignalError(again));
  EXPECT_EQ(hook.calls, 1);
}

TEST(PErrorProtection, SeverityNarrowsTheOfferedHandlings) {
  struct Row {
    TypErrorSeverityEnum severity;
    ULONG offered;
  };
  // Under a retry protection the chain offers ignore (2) and retry (4).
  const Row rows[] = {
      {ErrorSeverityAbort, 0},
      {ErrorSeverityError, kErrorMaskRetry},
      {ErrorSeverityWarning, kErrorMaskIgnore | kErrorMaskRetry},
      {ErrorSeverityFatal, 0},
  };
  PErrorRetryProtection retry(true);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.severity);
    PError error(kErrStreamNoHandler, row.severity);
    ULONG mask = 12345;
    PErrorProtectionStatus().PrepareDisplayMask(error, &mask);
    EXPECT_EQ(mask, row.offered);
  }
  PError none(0, ErrorSeverityError);
  ULONG mask = 12345;
  PErrorProtectionStatus().PrepareDisplayMask(none, &mask);
  EXPECT_EQ(mask, 12345u); // no error: the mask is left alone
}

TEST(PErrorProtection, DisplayWithoutProtectionOrErrorAnswersNone) {
  PError error(kErrStreamNoHandler, ErrorSeverityError);
  EXPECT_EQ(PErrorProtectionStatus().DisplayError(error), ErrorHandlingNone);
  CountingHook hook(ErrorHandlingItem);
  PErrorHookProtection protection(&hook, true);
  PError none;
  EXPECT_EQ(PErrorProtectionStatus().DisplayError(none), ErrorHandlingNone);
  EXPECT_EQ(PErrorProtectionStatus().DisplayError(error, 0x3E), ErrorHandlingItem);
  EXPECT_EQ(hook.lastMask, 0x3Eu);
}

// A protection that records its preparation and forwards it.
class RecordingProtection : public PErrorProtection {
public:
  RecordingProtection(std::vector<std::string>* log, const char* name)
      : PErrorProtection(false), m_log(log), m_name(name) {
    Set();
  }
  PError PrepareError(PError& error) override {
    m_log->push_back(m_name);
    error.SetIntegerInfo(m_name, static_cast<int>(m_log->size()));
    return PErrorProtection::PrepareError(error);
  }

private:
  std::vector<std::string>* m_log;
  const char* m_name;
};

TEST(PErrorProtection, PreparationRunsFromTheInnermostOutward) {
  std::vector<std::string> log;
  RecordingProtection outer(&log, "outer");
  PErrorIntInfoProtection stop("stop", 5, true); // does not forward
  RecordingProtection middle(&log, "middle");
  RecordingProtection inner(&log, "inner");
  PError error(kErrStreamNoHandler, ErrorSeverityError);
  PError prepared = PErrorProtectionStatus().PrepareError(error);
  EXPECT_EQ(log, (std::vector<std::string>{"inner", "middle"}));
  EXPECT_EQ(prepared.GetIntegerInfo("inner", 0), 1);
  EXPECT_EQ(prepared.GetIntegerInfo("middle", 0), 2);
  EXPECT_EQ(prepared.GetIntegerInfo("stop", 0), 5);
  EXPECT_FALSE(prepared.HasIntegerInfo("outer"));
}

TEST(PErrorProtection, SignalledErrorCarriesThePreparedInfo) {
  PErrorIntInfoProtection detail("record", 17, true);
  PError thrown = Caught([] { Raise(PError(kErrStreamNoHandler, ErrorSeverityError)); });
  EXPECT_EQ(thrown.GetIntegerInfo("record", 0), 17);
}

// An external handler that rewrites the code, narrows the mask and answers.
class TestHandler : public IQVErrorHandler {
public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IQVErrorHandler)) {
      *out = static_cast<IQVErrorHandler*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }
  HRESULT STDMETHODCALLTYPE PrepareError(IQVError* error) override {
    ++prepared;
    error->SetInfo("handled", ErrorTagInteger, "\x2A\0\0\0", 4);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE PrepareDisplayMask(IQVError*, ULONG* mask) override {
    *mask |= kErrorMaskItem;
    return S_OK;
  }
  LONG STDMETHODCALLTYPE DisplayError(IQVError* error, ULONG mask) override {
    lastMask = mask;
    seenCode = error->GetCode();
    return ErrorHandlingItem;
  }
  ULONG refs = 1;
  int prepared = 0;
  ULONG lastMask = 0;
  LONG seenCode = 0;
};

TEST(PErrorProtection, ExternalHandlerTakesOverTheWholeChain) {
  TestHandler handler;
  CountingHook outerHook(ErrorHandlingRetry);
  PErrorHookProtection outer(&outerHook, true);
  {
    PQVErrorHandlerProtection protection(static_cast<IUnknown*>(&handler), true);
    EXPECT_EQ(handler.refs, 2u);
    PError thrown = Caught([] { Raise(PError(kErrStreamNoHandler, ErrorSeverityError)); });
    EXPECT_EQ(thrown.Code(), kErrControlSkipItem); // the handler's answer: give up the item
    EXPECT_EQ(thrown.GetIntegerInfo("waserror", 0), kErrStreamNoHandler);
    EXPECT_EQ(thrown.GetIntegerInfo("handled", 0), 42);
    EXPECT_EQ(handler.seenCode, kErrStreamNoHandler);
    EXPECT_EQ(handler.lastMask, kErrorMaskItem); // (2 | 8) & 29
    EXPECT_EQ(outerHook.calls, 0);
  }
  EXPECT_EQ(handler.refs, 1u);
}

TEST(PErrorProtection, HandlerProtectionWithoutAHandlerDoesNothing) {
  PQVErrorHandlerProtection protection(nullptr, true);
  PError error(kErrStreamNoHandler, ErrorSeverityError);
  EXPECT_EQ(PErrorProtectionStatus().DisplayError(error), ErrorHandlingNone);
  PError thrown = Caught([] { Raise(PError(kErrStreamNoHandler, ErrorSeverityError)); });
  EXPECT_EQ(thrown.Code(), kErrStreamNoHandler);
}

TEST(PErrorProtection, StringInfoProtectionStopsThePreparation) {
  PApplicationErrorProtection application("Editor", true);
  PErrorStringInfoProtection detail("document", PMBString("report.doc"), true);
  PError error(kErrStreamNoHandler, ErrorSeverityError);
  PError prepared = PErrorProtectionStatus().PrepareError(error);
  EXPECT_STREQ(static_cast<const char*>(prepared.GetStringInfo("document", "")), "report.doc");
  EXPECT_FALSE(prepared.HasStringInfo("appname"));
}

TEST(PErrorProtection, NameProtectionsNameTheirScopesAndForward) {
  PApplicationErrorProtection application("Editor", true);
  PActionErrorProtection action(PMBString("Save"), true);
  PItemErrorProtection item("chapter 3", true);
  PError thrown = Caught([] { Raise(PError(kErrStreamNoHandler, ErrorSeverityError)); });
  EXPECT_STREQ(static_cast<const char*>(thrown.GetStringInfo("appname", "")), "Editor");
  EXPECT_STREQ(static_cast<const char*>(thrown.GetStringInfo("actionname", "")), "Save");
  EXPECT_STREQ(static_cast<const char*>(thrown.GetStringInfo("itemname", "")), "chapter 3");
}

std::string Info(const PError& error, const char* key) {
  return static_cast<const char*>(error.GetStringInfo(key, "<none>"));
}

TEST(PErrorProtection, NameProtectionsTakeTheirNamesFromStringResources) {
  qvbase::test::ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  const NResourceLocation shifted(module.handle(), IDS_SHIFTED_BASE);
  PApplicationErrorProtection application(NResourceString(1, shifted), true);
  PActionErrorProtection action(NResourceString(2, shifted), true);
  PItemErrorProtection item(NResourceString(3, shifted), true);
  PError thrown = Caught([] { Raise(PError(kErrStreamNoHandler, ErrorSeverityError)); });
  EXPECT_EQ(Info(thrown, "appname"), "Shifted string 1");
  EXPECT_EQ(Info(thrown, "actionname"), "Shifted string 2");
  EXPECT_EQ(Info(thrown, "itemname"), "Shifted string 3");
}

TEST(PErrorProtection, StringInfoProtectionTakesItsTextFromAStringResource) {
  qvbase::test::ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  PErrorStringInfoProtection detail(
      "document", NResourceString(IDS_MIDDLE, NResourceLocation(module.handle())), true);
  PError error(kErrStreamNoHandler, ErrorSeverityError);
  PError prepared = PErrorProtectionStatus().PrepareError(error);
  EXPECT_EQ(Info(prepared, "document"), "A string in the middle");
}

TEST(PErrorProtection, MissingNameResourceGivesTheFallbackTextKeptForLaterErrors) {
  qvbase::test::ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  PApplicationErrorProtection application(
      NResourceString(7, NResourceLocation(module.handle(), 2000)), true);
  char path[1024] = "";
  QVRes_GetModuleFileName(module.handle(), path, sizeof path);
  const std::string fallback = "****" + std::string(path) + ": UNDEFINED RESOURCE STRING #2007****";
  EXPECT_EQ(Info(Caught([] { Raise(PError(kErrStreamNoHandler, ErrorSeverityError)); }), "appname"),
            fallback);
  // The miss cleared the protection's resource string; its kept text stays.
  EXPECT_EQ(
      Info(Caught([] { Raise(PError(kErrStreamOpenModeInvalid, ErrorSeverityError)); }), "appname"),
      fallback);
}

TEST(PErrorProtection, TextNamesAreNeverReplacedByAResource) {
  PApplicationErrorProtection application("", true);
  PItemErrorProtection item(PMBString(""), true);
  PError thrown = Caught([] { Raise(PError(kErrStreamNoHandler, ErrorSeverityError)); });
  EXPECT_EQ(Info(thrown, "appname"), "");
  EXPECT_EQ(Info(thrown, "itemname"), "");
}

#if !defined(_WIN32)
// (Windows' own calls do not survive a freed module's handle.)
TEST(PErrorProtection, ResourceNameIsLoadedAtTheFirstPreparationAndThenKept) {
  PActionErrorProtection loadedLate(NResourceString(), false);
  PActionErrorProtection loadedEarly(NResourceString(), false);
  {
    qvbase::test::ScopedResourceModule module;
    ASSERT_EQ(module.result(), QVRES_OK);
    const NResourceLocation shifted(module.handle(), IDS_SHIFTED_BASE);
    loadedLate = PActionErrorProtection(NResourceString(4, shifted), false);
    loadedEarly = PActionErrorProtection(NResourceString(5, shifted), false);
    loadedEarly.Set();
    Caught([] { Raise(PError(kErrStreamNoHandler, ErrorSeverityError)); });
    loadedEarly.Unset();
  }
  // The module is gone: the name loaded before stays, the other was not
  // loaded at construction and now cannot be.
  loadedEarly.Set();
  EXPECT_EQ(
      Info(Caught([] { Raise(PError(kErrStreamNoHandler, ErrorSeverityError)); }), "actionname"),
      "Shifted string 5");
  loadedEarly.Unset();
  loadedLate.Set();
  const std::string late =
      Info(Caught([] { Raise(PError(kErrStreamNoHandler, ErrorSeverityError)); }), "actionname");
  loadedLate.Unset();
  EXPECT_EQ(late, "****^module^: UNDEFINED RESOURCE STRING #1004****");
}
#endif

TEST(PErrorProtection, DisplayMaskGrowsFromTheOutsideIn) {
  // An application protection outside an action protection outside a retry
  // protection: 2, then 34, then 50, then 54; an error of severity 29 is
  // offered 54 AND 29 = 20, retry and action.
  PApplicationErrorProtection application("Editor", true);
  PActionErrorProtection action("Save", true);
  PErrorRetryProtection retry(true);
  CountingHook hook(ErrorHandlingNone);
  PErrorHookProtection ask(&hook, true);
  PError error(kErrStreamNoHandler, ErrorSeverityError);
  ULONG mask = 0;
  PErrorProtectionStatus().PrepareDisplayMask(error, &mask);
  EXPECT_EQ(mask, 20u);
  EXPECT_EQ(PErrorProtectionStatus().DisplayError(error), ErrorHandlingNone);
  EXPECT_EQ(hook.lastMask, 20u);
  PError warning(kErrStreamNoHandler, ErrorSeverityWarning);
  PErrorProtectionStatus().PrepareDisplayMask(warning, &mask);
  EXPECT_EQ(mask, 54u & 31u);
}

TEST(PErrorProtection, ItemProtectionOffersTheItemInsteadOfRetry) {
  PErrorRetryProtection retry(true);
  PItemErrorProtection item("row 4", true);
  PError error(kErrStreamNoHandler, ErrorSeverityError);
  ULONG mask = 0;
  PErrorProtectionStatus().PrepareDisplayMask(error, &mask);
  // 2 | 4 from the retry outside, then the item withdraws 4 and offers 8.
  EXPECT_EQ(mask, (kErrorMaskIgnore | kErrorMaskItem) & 29u);
}

class CountingMapper : public PErrorDisplayMapper {
public:
  CountingMapper(int accepted, bool answer) : m_accepted(accepted), m_answer(answer) {}
  bool Map(int, TypErrorSeverityEnum, PString*) override {
    ++maps;
    return m_answer;
  }
  bool Accepts(int code) override { return code == m_accepted; }
  int maps = 0;

private:
  int m_accepted;
  bool m_answer;
};

TEST(PErrorDisplayMapper, TheLastConstructedMapperAnswersFirst) {
  CountingMapper older(kErrStreamNoHandler, true);
  CountingMapper newer(kErrStreamNoHandler, true);
  CountingMapper other(kErrAccessDenied, true);
  EXPECT_EQ(PErrorDisplayMapper::theirFirst, &other);
  EXPECT_TRUE(PErrorDisplayMapper::MapError(kErrStreamNoHandler, ErrorSeverityError, nullptr));
  EXPECT_EQ(newer.maps, 1);
  EXPECT_EQ(older.maps, 0);
  EXPECT_EQ(other.maps, 0);
  EXPECT_FALSE(PErrorDisplayMapper::MapError(4711, ErrorSeverityError, nullptr));
}

TEST(PErrorDisplayMapper, AFailingMapperPassesToTheNextOne) {
  CountingMapper older(kErrStreamNoHandler, true);
  {
    CountingMapper failing(kErrStreamNoHandler, false);
    EXPECT_TRUE(PErrorDisplayMapper::MapError(kErrStreamNoHandler, ErrorSeverityError, nullptr));
    EXPECT_EQ(failing.maps, 1);
    EXPECT_EQ(older.maps, 1);
  }
  // The destroyed mapper has left the list.
  EXPECT_EQ(PErrorDisplayMapper::theirFirst, &older);
}

} // namespace
