// ComponentRegistry.h - the registry functions the components family calls.
// Part of qvbase, the QVKernel foundation class library.
//
// Every call of the family into QVComponent goes through this table, so
// that a test can stand a recording registry in for the real one
// (GSetComponentRegistry) and check each call sequence.
#pragma once

#include <QVComponent.h>

namespace qvbase {
namespace components {

// The table in use: QVComponent's own unless another was given.
const QVCompFunctionTable& Registry();

// An infos record with its size word set.
template <typename Record>
Record EmptyRecord() {
  Record record{};
  record.size = sizeof record;
  return record;
}

} // namespace components
} // namespace qvbase
