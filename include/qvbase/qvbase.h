// qvbase.h - every public header of the library.
// Part of qvbase, the QVKernel foundation class library.
//
// Clients include this one header (or one class family's own) and link the
// CMake target qvbase::qvbase12.
#pragma once

#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>
#include <qvbase/QVVersion.h>

#include <qvbase/MemoryManager.h>
#include <qvbase/PRoot.h>
#include <qvbase/PSmartData.h>
#include <qvbase/PInterfacePtr.h>
#include <qvbase/PUniversalID.h>
#include <qvbase/PList.h>
#include <qvbase/PString.h>
#include <qvbase/PASCIIString.h>
#include <qvbase/PMBString.h>
#include <qvbase/PUNIString.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PError.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/WINError.h>
#include <qvbase/GDbg.h>
#include <qvbase/PStringConversions.h>
#include <qvbase/NMutex.h>
#include <qvbase/NThreadStorage.h>
#include <qvbase/PDynClass.h>
#include <qvbase/PStream.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PBufferizedStream.h>
#include <qvbase/POverStream.h>
#include <qvbase/PNullStream.h>
#include <qvbase/PTextStream.h>
#include <qvbase/PStreamSection.h>
#include <qvbase/PMessage.h>
#include <qvbase/PMsgListener.h>
#include <qvbase/PTime.h>
#include <qvbase/PDate.h>
#include <qvbase/WINDate.h>
#include <qvbase/PComponent.h>
#include <qvbase/NResource.h>
#include <qvbase/NResourceStream.h>
#include <qvbase/NResourceStruct.h>
#include <qvbase/PProgressHook.h>
#include <qvbase/PProgressDialog.h>
#include <qvbase/PBackground.h>
#include <qvbase/PBenchmark.h>
