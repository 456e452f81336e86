// PMessage.cpp - messages, their payloads, the pending queue and the stream
// form of a message.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PMessage.h>

#include <qvbase/PErrorCodes.h>
#include <qvbase/PMsgListener.h>
#include <qvbase/PStreamSection.h>

#include "errors/RaiseError.h"

#include <memory>

namespace {

// The error's defined source position, not a path of this tree.
const char kSourceFile[] = "src\\PMessage";

// The section header: identifier (16), version (4), size (8).
constexpr ULONG kSectionHeaderSize = 28;

} // namespace

PPendingMessageList gPendingMessages;

// ---------------------------------------------------------------------------
// PMessageData

DC_DEFINE_ROOT_CLASS(PMessageData, PAutomaticUID("MessageData"))

PMessageData::PMessageData() = default;

PMessageData::PMessageData(const PMessageData& other) : PSmartData(other) {}

PMessageData& PMessageData::operator=(const PMessageData& other) {
  PSmartData::operator=(other);
  return *this;
}

PMessageData::~PMessageData() = default;

const PUniversalID& PMessageData::DC_CLSID() const { return DC()->ClassIID(); }

bool PMessageData::IsStreamable() const { return false; }

void PMessageData::WriteTo(PStream&, ULONG* version) const {
  if (version)
    *version = 0;
}

ULONG PMessageData::WriteSize(PStream&) const { return 0; }

void PMessageData::ReadFrom(PStream&, ULONG) {}

void PMessageData::BroadcastIt(bool urgent) { SendIt(nullptr, urgent); }

void PMessageData::SendIt(PMsgListener* target, bool urgent) {
  PendingMessage* record = new PendingMessage(PMessage(this), target);
  if (urgent)
    gPendingMessages.AddHead(record);
  else
    gPendingMessages.AddTail(record);
}

// ---------------------------------------------------------------------------
// PMessage

PMessage::PMessage() : data(nullptr) {}

PMessage::PMessage(PMessageData* newData) : data(newData) {
  if (data)
    data->AddRef();
}

PMessage::PMessage(const PMessage& other) : PRoot(other), data(other.data) {
  if (data)
    data->AddRef();
}

PMessage& PMessage::operator=(const PMessage& other) { return *this = other.data; }

PMessage& PMessage::operator=(PMessageData* newData) {
  // The new payload first: assigning a message its own payload keeps it.
  if (newData)
    newData->AddRef();
  PMessageData* old = data;
  data = newData;
  if (old)
    old->Release();
  return *this;
}

PMessage::~PMessage() {
  if (data)
    data->Release();
}

void PMessage::Send(PMsgListener* target, bool urgent) const {
  if (data)
    data->SendIt(target, urgent);
}

void PMessage::Broadcast(bool urgent) const {
  if (data)
    data->BroadcastIt(urgent);
}

void PMessage::ProcessMessages() {
  while (!gPendingMessages.IsEmpty()) {
    // The record leaves the queue before its delivery: what the handler
    // sends is queued behind it, and a handler that throws leaves the rest.
    std::unique_ptr<PendingMessage> record(gPendingMessages.First());
    gPendingMessages.RemoveAt(0);
    if (record->target)
      record->target->Dispatch(record->message);
    else
      PMsgListener::Broadcast(record->message);
  }
}

void PMessage::FlushMessages(PMsgListener* target) {
  ULONG i = 0;
  while (i < gPendingMessages.Size()) {
    PendingMessage* record = gPendingMessages.At(i);
    if (record->target == target) {
      gPendingMessages.RemoveAt(i);
      delete record;
    } else {
      ++i;
    }
  }
}

void PMessage::WriteTo(PStream& stream) const {
  if (data && data->IsStreamable()) {
    PStreamSection section = OpenWriteSection(stream, data->DC_CLSID(), 0);
    ULONG version = 0;
    data->WriteTo(section, &version);
    section.SetVersion(version);
    section.Close();
    return;
  }
  // Empty or not streamable: a placeholder keeps the message's place.
  PStreamSection section = OpenWriteSection(stream, PUniversalID(), 0);
  section.Close();
}

ULONG PMessage::WriteSize(PStream& stream) const {
  ULONG size = GetWriteSectionSize(stream);
  if (data && data->IsStreamable())
    size += data->WriteSize(stream);
  return size;
}

TypMessageRead PMessage::ReadFrom(PStream& stream) {
  *this = nullptr;
  // The header is checked before the section is opened: a section whose
  // size cannot be right would send its reader outside the stream.
  const unsigned __int64 start = stream.GetPos();
  const unsigned __int64 end = stream.GetSize();
  const unsigned __int64 left = end > start ? end - start : 0;
  bool damaged = left < kSectionHeaderSize;
  PUniversalID id;
  if (!damaged) {
    __int64 size = 0;
    LONG version = 0;
    stream.Read(&id);
    stream.Read(&version);
    stream.Read(&size);
    stream.MoveTo(start);
    damaged = size < static_cast<__int64>(kSectionHeaderSize) ||
              static_cast<unsigned __int64>(size) > left;
  }
  if (damaged) {
    qvbase::errors::Raise(kErrStreamBadFormat, ErrorSeverityError, kSourceFile, __LINE__);
    // Let through: nothing after a damaged header can be trusted.
    stream.MoveTo(end);
    return MessageReadDamaged;
  }

  PStreamSection section = OpenReadSection(stream);
  if (id == PUniversalID())
    return MessageReadPlaceholder; // the section closes behind it
  void* made = PMessageData::dcobj_class.CreateClassInstance(id);
  if (!made)
    return MessageReadUnknown;
  // Kept aside until read: a reader that throws leaves this message empty.
  PMessage read(static_cast<PMessageData*>(made));
  read.data->ReadFrom(section, section.Version());
  section.Close(); // after the section, whatever the reader took
  *this = read;
  return MessageReadKnown;
}

PPendingMessageList::~PPendingMessageList() {
  while (!IsEmpty()) {
    PendingMessage* record = First();
    RemoveAt(0);
    delete record;
  }
}
