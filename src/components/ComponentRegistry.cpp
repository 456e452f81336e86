// ComponentRegistry.cpp - the registry functions the components family calls.
// Part of qvbase, the QVKernel foundation class library.
#include "components/ComponentRegistry.h"

#include <qvbase/PComponent.h>

namespace {

// Null while QVComponent's own functions are in use.
const QVCompFunctionTable* gStandIn = nullptr;

} // namespace

namespace qvbase {
namespace components {

const QVCompFunctionTable& Registry() { return gStandIn ? *gStandIn : *QVComp_FunctionTable(); }

} // namespace components
} // namespace qvbase

const QVCompFunctionTable* GSetComponentRegistry(const QVCompFunctionTable* table) {
  const QVCompFunctionTable* previous = &qvbase::components::Registry();
  gStandIn = table;
  return previous;
}
