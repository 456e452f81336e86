// PMessage.h - messages, their payloads and the process-wide pending queue.
// Part of qvbase, the QVKernel foundation class library.
//
// A message is a reference-counted payload (a PMessageData, one subclass per
// kind of message, told apart by its dynamic class) carried by a small value
// handle, PMessage. A kind is declared in one line and defined in one:
//
//   class PGreeting : public PMessageData {
//     DC_DECLARE_CLASS(PGreeting)
//   public:
//     PString text;
//   };
//   DC_DEFINE_CLASS(PGreeting, PMessageData, PAutomaticUID("Greeting"))
//
// Delivery contract of the pending queue:
// - Send and Broadcast never deliver: they queue one record (the payload and
//   its target, null for a broadcast) in gPendingMessages, at the tail, or at
//   the head when urgent. Urgent messages are therefore delivered before
//   every queued one, the latest urgent first. An empty message queues
//   nothing.
// - PMessage::ProcessMessages delivers, on the calling thread, until the
//   queue is empty: a record leaves the queue before its delivery, so a
//   handler may send, broadcast, register, unregister or destroy listeners;
//   what it sends is delivered in the same call (urgent next, the rest after
//   the backlog). A handler that throws ends the call: its record is gone,
//   the others stay queued for the next call.
// - A record addressed to a listener goes to that listener (its filter and
//   listening switch apply); a broadcast goes to every top-level listener,
//   whether or not one consumes it (PMsgListener.h has the walk).
// - The queue is not locked: Send, Broadcast, ProcessMessages and
//   FlushMessages belong to the thread that runs the application's main
//   loop. Other threads post to a PMsgPort.
// - A listener that goes away with records still addressed to it leaves
//   them queued, unless it turned its flush word on (PMsgListener.h): call
//   FlushMessages(listener) before destroying it.
//
// Stream form: a message is one stream section keyed by the payload's class
// identifier, with the format version the payload reports; a message that
// is empty or whose payload is not streamable is written as an empty
// section with the null identifier (a placeholder, never dropped).
#pragma once

#include <qvbase/PDynClass.h>
#include <qvbase/PList.h>
#include <qvbase/PSmartData.h>
#include <qvbase/PStream.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

class PMsgListener;
class PMessage;

// The payload of a message: the root of the message family of dynamic
// classes. Creatable (with its null-like identifier "MessageData"), not
// streamable.
class QVBASE_API PMessageData : public PSmartData {
  DC_DECLARE_ROOT_CLASS(PMessageData)
public:
  PMessageData();
  PMessageData(const PMessageData& other);
  PMessageData& operator=(const PMessageData& other);
  ~PMessageData() override;

  // The class identifier of the payload's kind.
  const PUniversalID& DC_CLSID() const override;

  // Whether the kind can be written to a log; false here.
  virtual bool IsStreamable() const;
  // Writes the payload and sets *version to the format version stored with
  // it. Here: writes nothing, version 0.
  virtual void WriteTo(PStream& stream, ULONG* version) const;
  // The number of bytes WriteTo writes; 0 here.
  virtual ULONG WriteSize(PStream& stream) const;
  // Reads a payload written by WriteTo with that version; nothing here.
  virtual void ReadFrom(PStream& stream, ULONG version);

protected:
  // Queue this payload for every top-level listener, or for `target`, at
  // the head of the pending queue when urgent, else at its tail.
  virtual void BroadcastIt(bool urgent);
  virtual void SendIt(PMsgListener* target, bool urgent);

  friend class PMessage;
};

// What PMessage::ReadFrom found in the section it read.
enum TypMessageRead {
  MessageReadKnown = 0,       // a registered kind: the message holds its payload
  MessageReadPlaceholder = 1, // the null identifier: the message is empty
  MessageReadUnknown = 2,     // a kind no registered class makes: the message is empty
  MessageReadDamaged = 3      // a header that cannot be a section's (error let through)
};

// A message: a handle on a shared payload, or empty.
class QVBASE_API PMessage : public PRoot {
public:
  PMessage();
  PMessage(PMessageData* data); // takes a reference; implicit on purpose
  PMessage(const PMessage& other);
  // The new payload is referenced before the old one is released, so
  // assigning a message to itself keeps its payload.
  PMessage& operator=(const PMessage& other);
  PMessage& operator=(PMessageData* data);
  ~PMessage() override;

  PMessageData* GetData() const { return data; }
  bool IsEmpty() const { return data == nullptr; }
  // The payload as a `Kind` (a class of the message family declared with
  // the DC_ helpers), when it is one or derives from one; else null.
  template <class Kind>
  Kind* DataAs() const {
    return data && data->DC_IsOfClass(&Kind::dcobj_class) ? static_cast<Kind*>(data) : nullptr;
  }

  // Queue the message for `target` (null: for every top-level listener), or
  // for every top-level listener. Nothing for an empty message.
  void Send(PMsgListener* target, bool urgent = false) const;
  void Broadcast(bool urgent = false) const;

  // Delivers queued records, oldest first after the urgent ones, until the
  // queue is empty (see the delivery contract above).
  static void ProcessMessages();
  // Removes, without delivering, every queued record addressed to `target`
  // (null: every queued broadcast); the others keep their order.
  static void FlushMessages(PMsgListener* target);

  // Writes the message as one section (a placeholder when empty or not
  // streamable).
  void WriteTo(PStream& stream) const;
  // The bytes WriteTo writes: the section header plus the payload's size.
  ULONG WriteSize(PStream& stream) const;
  // Reads the section at the stream's position and leaves the stream just
  // after it, whatever the payload's reader took, so that a replay goes on
  // with the next section. The message is emptied first, then:
  // - a registered kind: a new payload reads its body (with the section's
  //   version) and becomes this message's data: MessageReadKnown;
  // - the null identifier (a placeholder): MessageReadPlaceholder;
  // - an identifier no registered class of the message family makes:
  //   MessageReadUnknown (GetNextSection before the read tells which). A
  //   registered kind without factory raises error 1009 first, and counts
  //   as unknown when that returns.
  // A header that is cut short, or whose size is below the header's or
  // runs past the end of the stream, raises error 1233 (severity 29, from
  // src\PMessage); when that returns, the stream is moved to its end (a
  // replay stops there) and the answer is MessageReadDamaged. Errors of the
  // stream and of the payload's reader pass through.
  TypMessageRead ReadFrom(PStream& stream);

private:
  PMessageData* data;
};

// One queued message: it keeps its payload alive until it is delivered or
// flushed.
struct QVBASE_API PendingMessage {
  PendingMessage(const PMessage& message, PMsgListener* target)
      : message(message), target(target) {}
  PMessage message;
  PMsgListener* target; // null for a broadcast
};

// The pending queue's list: it owns its records and deletes those still
// queued when it goes.
class QVBASE_API PPendingMessageList : public LinkedList<PendingMessage> {
public:
  PPendingMessageList() = default;
  PPendingMessageList(const PPendingMessageList&) = delete;
  PPendingMessageList& operator=(const PPendingMessageList&) = delete;
  ~PPendingMessageList() override;
};

// The process-wide pending queue, for the thread that runs the main loop.
QVBASE_API extern PPendingMessageList gPendingMessages;
