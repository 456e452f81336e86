// MessageKindsModule.cpp - a module that the messaging tests load and unload
// at run time. It declares two kinds of message; their records join the
// message family when the module is loaded and leave it when it is unloaded.
#include <qvbase/PMessage.h>

#if defined(_WIN32)
#define MODULE_EXPORT extern "C" __declspec(dllexport)
#else
#define MODULE_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace module_kinds {

class ModuleGreeting : public PMessageData {
  DC_DECLARE_CLASS(ModuleGreeting)
public:
  bool IsStreamable() const override { return true; }
  void WriteTo(PStream& stream, ULONG* version) const override {
    stream.Write(value);
    *version = 1;
  }
  void ReadFrom(PStream& stream, ULONG) override { stream.Read(&value); }
  LONG value = 0;
};

class ModuleFarewell : public ModuleGreeting {
  DC_DECLARE_CLASS(ModuleFarewell)
};

DC_DEFINE_CLASS(ModuleGreeting, PMessageData, PAutomaticUID("ModuleGreeting"))
DC_DEFINE_CLASS(ModuleFarewell, ModuleGreeting, PAutomaticUID("ModuleFarewell"))

} // namespace module_kinds

// The value a greeting made by this module carries, so that the test can
// tell the module's instance from anything else.
MODULE_EXPORT LONG ModuleGreetingValue(PMessageData* data) {
  module_kinds::ModuleGreeting* greeting =
      data && data->DC_IsOfClass(&module_kinds::ModuleGreeting::dcobj_class)
          ? static_cast<module_kinds::ModuleGreeting*>(data)
          : nullptr;
  return greeting ? greeting->value : -1;
}
