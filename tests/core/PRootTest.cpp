// The root class: virtual destruction, class allocation that bypasses the
// memory managers, and copies that copy nothing.
#include <qvbase/PRoot.h>

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace {

std::vector<std::string>& Destroyed() {
  static std::vector<std::string> names;
  return names;
}

class Middle : public PRoot {
public:
  ~Middle() override { Destroyed().push_back("Middle"); }
};

class Leaf : public Middle {
public:
  ~Leaf() override { Destroyed().push_back("Leaf"); }
};

class Payload : public PRoot {
public:
  explicit Payload(int value) : m_value(value) { std::memset(m_bytes, value, sizeof m_bytes); }
  int m_value;
  unsigned char m_bytes[1000];
};

class ThrowsOnConstruction : public PRoot {
public:
  ThrowsOnConstruction() { throw std::runtime_error("refused"); }
};

// A manager that must never be asked for anything.
struct UntouchedManager {
  MemoryManager record;
  int calls = 0;
  UntouchedManager() {
    record.reserved = 0;
    record.name = "Untouched";
    record.allocate = [](MemoryManager* self, ULONG, unsigned short) -> void* {
      ++reinterpret_cast<UntouchedManager*>(self)->calls;
      return nullptr;
    };
    record.reallocate = [](MemoryManager* self, void*, ULONG) -> void* {
      ++reinterpret_cast<UntouchedManager*>(self)->calls;
      return nullptr;
    };
    record.size = [](MemoryManager* self, void*) -> ULONG {
      ++reinterpret_cast<UntouchedManager*>(self)->calls;
      return 0;
    };
    record.release = [](MemoryManager* self, void*) {
      ++reinterpret_cast<UntouchedManager*>(self)->calls;
    };
    record.stats = [](MemoryManager* self, ULONG*, ULONG*, ULONG*) {
      ++reinterpret_cast<UntouchedManager*>(self)->calls;
    };
  }
};

TEST(PRoot, DestructorIsVirtual) {
  EXPECT_TRUE(std::has_virtual_destructor<PRoot>::value);
  EXPECT_TRUE(std::is_polymorphic<PRoot>::value);
}

TEST(PRoot, HoldsNothingButItsVirtualTablePointer) { EXPECT_EQ(sizeof(PRoot), sizeof(void*)); }

TEST(PRoot, DeletingThroughBasePointerRunsMostDerivedDestructor) {
  Destroyed().clear();
  PRoot* object = new Leaf;
  delete object;
  ASSERT_EQ(Destroyed().size(), 2u);
  EXPECT_EQ(Destroyed()[0], "Leaf");
  EXPECT_EQ(Destroyed()[1], "Middle");
}

TEST(PRoot, DeletingThroughIntermediateBaseRunsMostDerivedDestructor) {
  Destroyed().clear();
  Middle* object = new Leaf;
  delete object;
  ASSERT_EQ(Destroyed().size(), 2u);
  EXPECT_EQ(Destroyed()[0], "Leaf");
}

TEST(PRoot, ClassAllocationGivesStorageForTheWholeObject) {
  Payload* object = new Payload(7);
  EXPECT_EQ(object->m_value, 7);
  for (unsigned char byte : object->m_bytes)
    ASSERT_EQ(byte, 7);
  delete object;
}

TEST(PRoot, NewWithManagerDoesNotUseTheManager) {
  UntouchedManager manager;
  MemoryManager* previous = GGetDefaultMemManager();
  GSetDefaultMemManager(&manager.record);
  Payload* object = new (&manager.record) Payload(3);
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->m_value, 3);
  delete object;
  PRoot* plain = new Leaf;
  delete plain;
  GSetDefaultMemManager(previous);
  EXPECT_EQ(manager.calls, 0);
}

TEST(PRoot, ConstructorThrowingUnderManagerFormPropagatesAndFreesTheStorage) {
  UntouchedManager manager;
  EXPECT_THROW(new (&manager.record) ThrowsOnConstruction, std::runtime_error);
  EXPECT_THROW(new ThrowsOnConstruction, std::runtime_error);
  EXPECT_EQ(manager.calls, 0);
}

TEST(PRoot, AssignmentCopiesNothingAndReturnsTheObject) {
  Leaf a, b;
  PRoot& target = a;
  PRoot& result = (target = static_cast<const PRoot&>(b));
  EXPECT_EQ(&result, &a);
}

TEST(PRoot, CopyOfDerivedObjectKeepsItsOwnData) {
  Payload original(9);
  Payload copy(original);
  EXPECT_EQ(copy.m_value, 9);
  copy.m_value = 4;
  EXPECT_EQ(original.m_value, 9);
}

} // namespace
