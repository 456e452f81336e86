// PProgressDialog.h - when a progress window appears, refreshes and cancels.
// Part of qvbase, the QVKernel foundation class library.
//
// PProgressDialog is a root progress hook (PProgressHook.h) that decides the
// timing of a progress window; the window itself is a derived class's,
// through five operations: DialogShow, DialogHide, DialogProcessEvents,
// DialogUpdate and IsDialogCancelled. All timing happens in the operation's
// own calls (Start, Continue, Stop) on the application's event thread:
//
// - The window appears at the first Continue once the show delay (3 seconds
//   by default) has passed since Start, so a short operation never shows one;
//   with a show delay of 0 it appears in Start.
// - Changes ask for a refresh: value and end-value changes of levels below
//   the value levels (1 by default: the root's own), status changes of
//   levels below the status levels (1). A pending refresh is drawn at a
//   Continue once two refresh intervals (1 second by default) have passed
//   since the window appeared or was last drawn, and at Stop.
// - Every Continue lets the window process its events and asks whether the
//   user cancelled; a cancelled dialog makes Continue raise the cancellation
//   error (kErrProgressCancelled), which ends the operation.
//
//   class MyDialog : public PProgressDialog {
//     bool DialogShow() override { return m_window.Create(); }
//     void DialogUpdate() override { m_window.SetBar(GetCurrentPercent()); }
//     void DialogProcessEvents() override { PumpMessages(); }
//     bool IsDialogCancelled() override { return m_window.CancelPressed(); }
//     void DialogHide() override { m_window.Destroy(); }
//   };
//
// Dialog objects belong to the event thread; nothing here takes a lock.
#pragma once

#include <qvbase/PDate.h>
#include <qvbase/PProgressHook.h>
#include <qvbase/PTime.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// The timing of a progress window: when it appears, refreshes and is
// cancelled.
class QVBASE_API PProgressDialog : public PProgressHook {
public:
  // Value levels 1, status levels 1, refresh interval 1 s, show delay 3 s.
  PProgressDialog();
  // Copy the four settings; the copy's run starts at rest (not shown,
  // nothing pending).
  PProgressDialog(const PProgressDialog& other);
  PProgressDialog& operator=(const PProgressDialog& other);
  ~PProgressDialog() override;

  // Sets the four settings. Sub-levels below `statusLevels` are made with
  // their flag set (so a window knows which levels' status it shows).
  void IProgressDialog(ULONG valueLevels, ULONG statusLevels, PTime interval, PTime showDelay);

protected:
  // The base reset, then the show deadline: now + show delay. With a show
  // delay of 0 the window is shown at once.
  void DoStart() override;
  // Completes the range (the base), then, when the window is shown, draws a
  // pending refresh, lets the window process its events and hides it.
  void DoStop() override;
  // Shows the window when its time has come, or draws a pending refresh two
  // intervals after the last drawing; then DialogProcessEvents, and false
  // when the user cancelled.
  bool DoContinue() override;
  void StatusChanged(ULONG level) override;
  void EndValueChanged(ULONG level) override;
  void CurrentValueChanged(ULONG level) override;
  // An ordinary sub-level whose flag is set when `flag` is true and `level`
  // is below the status levels.
  PProgressHook* CreateSubProgressHook(ULONG level, PProgressHook* parent, bool flag) override;

  // The window: all five do nothing here; the two questions answer false.
  // DialogShow answers whether a window is now shown.
  virtual bool DialogShow();
  virtual void DialogHide();
  virtual void DialogProcessEvents();
  virtual void DialogUpdate();
  virtual bool IsDialogCancelled();

private:
  ULONG m_valueLevels;  // value changes of levels below it ask for a refresh
  ULONG m_statusLevels; // status changes of levels below it ask for a refresh
  bool m_refreshPending;
  PTime m_refreshInterval;
  PTime m_showDelay;
  PLocalDate m_nextDate; // when the window may next appear or be refreshed
  bool m_shown;          // what the last DialogShow answered
};
