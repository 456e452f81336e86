// Dynamic classes: family registration, distances and identity by
// identifier, casts, creation by identifier through records and wrappers,
// the wrapper list order, the finders, and the DC_ declaration macros.
#include <qvbase/PDynClass.h>

#include "support/ErrorTestSupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using qvbase::test::Caught;
using qvbase::test::ScopedErrorCapture;

PUniversalID Id(const char* name) { return PAutomaticUID(name); }

// A wrapper that makes one marker object for one identifier, serves one
// interface identifier and maps one class identifier to it.
class MarkerWrapper : public PDynClassWrapper {
public:
  MarkerWrapper(const char* makes, const char* serves = "", const char* maps = "")
      : m_makes(Id(makes)), m_serves(Id(serves)), m_maps(Id(maps)) {}
  void* CreateClassInstance(const PUniversalID& id) const override {
    ++asked;
    return id == m_makes ? const_cast<MarkerWrapper*>(this) : nullptr;
  }
  bool IsUsingIID(const PUniversalID& id) const override {
    return m_serves.IsValid() && id == m_serves;
  }
  PUniversalID MapCLSIDToIID(const PUniversalID& clsid) const override {
    return m_maps.IsValid() && clsid == m_maps ? m_serves : PUniversalID();
  }
  mutable int asked = 0;

private:
  PUniversalID m_makes, m_serves, m_maps;
};

int gMade = 0;
void* MakeOne() {
  ++gMade;
  return &gMade;
}

// A family of records on the stack: Root <- A <- B, Root <- C.
struct SmallFamily {
  DC_ROOT_INFOS infos{0, nullptr};
  PDynClass root{&infos, "Root", nullptr, Id("Root"), nullptr, nullptr};
  PDynClass a{&infos, "A", &root, Id("A"), nullptr, nullptr};
  PDynClass b{&infos, "B", &a, Id("B"), nullptr, &MakeOne};
  PDynClass c{&infos, "C", &root, Id("C"), nullptr, nullptr};
};

TEST(PDynClass, RecordIsAtDistanceZeroFromItselfOneFromItsParentNoneFromOthers) {
  SmallFamily f;
  EXPECT_EQ(f.b.DistanceTo(&f.b), 0u);
  EXPECT_EQ(f.b.DistanceTo(&f.a), 1u);
  EXPECT_EQ(f.b.DistanceTo(&f.root), 2u);
  EXPECT_EQ(f.b.DistanceTo(&f.c), 4294967295u);
  EXPECT_EQ(f.a.DistanceTo(&f.b), 4294967295u); // a parent is not its child's child
  EXPECT_EQ(f.b.DistanceTo(nullptr), 4294967295u);
  EXPECT_TRUE(f.b.IsAChildOf(&f.root));
  EXPECT_TRUE(f.root.IsAParentOf(&f.b));
  EXPECT_FALSE(f.c.IsAChildOf(&f.a));
  EXPECT_FALSE(f.c.IsAParentOf(nullptr));
}

TEST(PDynClass, RecordsWithTheSameIdentifierCountAsTheSameClass) {
  DC_ROOT_INFOS infos{0, nullptr};
  PDynClass base(&infos, "Base", nullptr, Id("Base"), nullptr, nullptr);
  PDynClass twin(&infos, "Twin", nullptr, Id("Base"), nullptr, nullptr);
  PDynClass child(&infos, "Child", &base, Id("Child"), nullptr, nullptr);
  EXPECT_TRUE(base.IsClass(&twin));
  EXPECT_TRUE(twin.IsClass(&base));
  EXPECT_EQ(base.DistanceTo(&twin), 0u);
  EXPECT_EQ(child.DistanceTo(&twin), 1u);
  int object = 0;
  EXPECT_EQ(child.DynClassCast(&object, &twin), &object);
  const int constObject = 0;
  EXPECT_EQ(base.DynClassCast(&constObject, &twin), &constObject);
}

TEST(PDynClass, RecordsWithNullIdentifiersMatchOnlyByIdentity) {
  DC_ROOT_INFOS infos{0, nullptr};
  PDynClass first(&infos, "First", nullptr, PUniversalID(), nullptr, nullptr);
  PDynClass second(&infos, "Second", nullptr, PUniversalID(), nullptr, nullptr);
  PDynClass child(&infos, "Child", &first, PUniversalID(), nullptr, nullptr);
  EXPECT_TRUE(first.IsClass(&first));
  EXPECT_FALSE(first.IsClass(&second));
  EXPECT_FALSE(first.IsClassIID(PUniversalID())); // not even null matches null
  EXPECT_EQ(first.DistanceTo(&second), 4294967295u);
  EXPECT_EQ(child.DistanceTo(&first), 1u); // by identity
  int object = 0;
  EXPECT_EQ(child.DynClassCast(&object, &second), nullptr);
  EXPECT_EQ(child.DistanceToIID(PUniversalID()), 4294967295u);
}

TEST(PDynClass, IdentifierMatchNeedsTwoEqualNonNullIdentifiers) {
  DC_ROOT_INFOS infos{0, nullptr};
  PDynClass named(&infos, "Named", nullptr, Id("Named"), nullptr, nullptr);
  PDynClass unnamed(&infos, "Unnamed", nullptr, PUniversalID(), nullptr, nullptr);
  struct Row {
    const PDynClass* record;
    PUniversalID id;
    bool matches;
  };
  const Row rows[] = {
      {&named, Id("Named"), true},     {&named, Id("Other"), false},
      {&named, PUniversalID(), false}, {&unnamed, PUniversalID(), false},
      {&unnamed, Id("Named"), false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.record->ClassName()) + " row " + std::to_string(&row - rows));
    EXPECT_EQ(row.record->IsClassIID(row.id), row.matches);
    EXPECT_EQ(row.record->IsUsingIID(row.id), row.matches); // no wrapper: the same answer
  }
}

TEST(PDynClass, IdentifierWalksMatchByIdentifierOnly) {
  SmallFamily f;
  EXPECT_EQ(f.b.DistanceToIID(Id("Root")), 2u);
  EXPECT_EQ(f.b.DistanceToIID(Id("B")), 0u);
  EXPECT_EQ(f.b.DistanceToIID(Id("C")), 4294967295u);
  EXPECT_TRUE(f.b.IsAChildOfIID(Id("A")));
  EXPECT_FALSE(f.a.IsAChildOfIID(Id("B")));
}

TEST(PDynClass, CreatingWithoutConstructorRaisesError1009) {
  SmallFamily f;
  ScopedErrorCapture capture;
  EXPECT_EQ(f.a.CreateClassInstance(), nullptr); // signalled, ignored, nothing made
  ASSERT_EQ(capture.hook.codes, std::vector<int>{kErrClassWithoutConstructor});
  const PError& error = capture.hook.errors[0];
  EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
  EXPECT_STREQ(error.File(), "src\\pdynclasses");
  EXPECT_EQ(error.Line(), 242u);
}

TEST(PDynClass, CreatingWithoutConstructorThrowsWhenNothingAbsorbsIt) {
  SmallFamily f;
  EXPECT_EQ(Caught([&] { f.c.CreateClassInstance(); }).Code(), kErrClassWithoutConstructor);
  gMade = 0;
  EXPECT_EQ(f.b.CreateClassInstance(), &gMade);
  EXPECT_EQ(gMade, 1);
}

TEST(PDynClass, UnknownIdentifierHasTheNameUnknownObject) {
  SmallFamily f;
  EXPECT_STREQ(GDynClassFindIIDName(&f.infos, Id("Nobody")), "Unknown object");
  EXPECT_STREQ(GDynClassFindCLSIDName(&f.infos, Id("Nobody")), "Unknown object");
  EXPECT_STREQ(GDynClassFindIIDName(&f.infos, Id("A")), "A");
  EXPECT_STREQ(GDynClassFindCLSIDName(&f.infos, Id("C")), "C");
  EXPECT_EQ(GDynClassFindIIDHandler(nullptr, Id("A")), nullptr);
}

TEST(PDynClass, RecordsRegisterNewestFirstAndUnlinkOnDestruction) {
  DC_ROOT_INFOS infos{0, nullptr};
  PDynClass oldest(&infos, "Oldest", nullptr, Id("Oldest"), nullptr, nullptr);
  auto middle =
      std::make_unique<PDynClass>(&infos, "Middle", nullptr, Id("Middle"), nullptr, nullptr);
  auto newest =
      std::make_unique<PDynClass>(&infos, "Newest", nullptr, Id("Newest"), nullptr, nullptr);
  EXPECT_EQ(infos.count, 3u);
  EXPECT_EQ(infos.first, newest.get());
  EXPECT_EQ(newest->Next(), middle.get());
  EXPECT_EQ(middle->Previous(), newest.get());
  EXPECT_EQ(oldest.Next(), nullptr);
  EXPECT_EQ(newest->Previous(), nullptr);
  EXPECT_EQ(oldest.ClassRoot(), &infos);

  middle.reset(); // neighbours are joined
  EXPECT_EQ(infos.count, 2u);
  EXPECT_EQ(newest->Next(), &oldest);
  EXPECT_EQ(oldest.Previous(), newest.get());
  newest.reset(); // the head leaves: the family's first is the next one
  EXPECT_EQ(infos.count, 1u);
  EXPECT_EQ(infos.first, &oldest);
  EXPECT_EQ(oldest.Previous(), nullptr);
}

TEST(PDynClass, AccessorsAnswerTheStoredFields) {
  DC_ROOT_INFOS infos{0, nullptr};
  MarkerWrapper wrapper("X");
  PDynClass parent(&infos, "Parent", nullptr, Id("Parent"), nullptr, nullptr);
  PDynClass record(&infos, "Record", &parent, Id("Record"), &wrapper, &MakeOne);
  EXPECT_STREQ(record.ClassName(), "Record");
  EXPECT_EQ(record.ClassIID(), Id("Record"));
  EXPECT_EQ(record.ClassWrapper(), &wrapper);
  EXPECT_EQ(record.ClassConstructor(), &MakeOne);
  EXPECT_EQ(record.ClassParent(), &parent);
}

TEST(PDynClass, WrapperListPutsTheMostDerivedFirstAndTheNewerFirstAmongEquals) {
  DC_ROOT_INFOS infos{0, nullptr};
  MarkerWrapper wr("r"), wa("a"), wb("b"), wc("c"), wx("x");
  PDynClass root(&infos, "Root", nullptr, Id("Root"), &wr, nullptr);
  PDynClass a(&infos, "A", &root, Id("A"), &wa, nullptr);
  PDynClass b(&infos, "B", &a, Id("B"), &wb, nullptr);
  PDynClass c(&infos, "C", &root, Id("C"), &wc, nullptr);
  PDynClass other(&infos, "Other", nullptr, Id("Other"), &wx, nullptr); // not derived
  root.MakeWrapperList();
  ASSERT_EQ(root.WrapperCount(), 4u);
  EXPECT_EQ(root.WrapperAt(0), &wb); // distance 2
  EXPECT_EQ(root.WrapperAt(1), &wc); // distance 1, registered after A
  EXPECT_EQ(root.WrapperAt(2), &wa); // distance 1
  EXPECT_EQ(root.WrapperAt(3), &wr); // distance 0
  EXPECT_EQ(root.WrapperAt(4), nullptr);
  a.MakeWrapperList();
  ASSERT_EQ(a.WrapperCount(), 2u);
  EXPECT_EQ(a.WrapperAt(0), &wb);
  EXPECT_EQ(a.WrapperAt(1), &wa);
  root.UnmakeWrapperList();
  EXPECT_EQ(root.WrapperCount(), 0u);
}

TEST(PDynClass, CreationByIdentifierPrefersTheNewestDerivedRecordThenTheWrappers) {
  DC_ROOT_INFOS infos{0, nullptr};
  MarkerWrapper wa("fromA"), wb("fromB"), wb2("fromA");
  PDynClass root(&infos, "Root", nullptr, Id("Root"), nullptr, nullptr);
  PDynClass a(&infos, "A", &root, Id("A"), &wa, nullptr);
  PDynClass b(&infos, "B", &a, Id("B"), &wb, &MakeOne);
  PDynClass stranger(&infos, "Stranger", nullptr, Id("B"), nullptr, nullptr); // same id, unrelated
  PDynClass b2(&infos, "B2", &a, Id("B2"), &wb2, nullptr);
  gMade = 0;
  // "Stranger" is newer and has the identifier, but does not derive from A.
  EXPECT_EQ(a.CreateClassInstance(Id("B")), &gMade);
  EXPECT_EQ(gMade, 1);
  // No record has "fromA": the wrappers are asked, most derived first, and
  // among B and B2 (both at distance 1) the newer B2 first.
  EXPECT_EQ(a.CreateClassInstance(Id("fromA")), &wb2);
  EXPECT_EQ(wb.asked, 0);
  EXPECT_EQ(a.CreateClassInstance(Id("fromB")), &wb);
  EXPECT_EQ(a.CreateClassInstance(Id("nobody")), nullptr);
  // A class without derived wrappers declines everything.
  EXPECT_EQ(stranger.CreateClassInstance(Id("fromA")), nullptr);
}

TEST(PDynClass, UsingAnIdentifierThroughTheWrapper) {
  DC_ROOT_INFOS infos{0, nullptr};
  MarkerWrapper serving("", "IFace");
  PDynClass root(&infos, "Root", nullptr, Id("Root"), nullptr, nullptr);
  PDynClass user(&infos, "User", &root, Id("User"), &serving, nullptr);
  EXPECT_TRUE(user.IsUsingIID(Id("IFace")));
  EXPECT_TRUE(user.IsUsingIID(Id("User")));
  EXPECT_FALSE(root.IsUsingIID(Id("IFace")));
  EXPECT_EQ(GDynClassFindIIDHandler(&infos, Id("IFace")), &user);
}

TEST(PDynClass, IsAParentOfIIDAsksOnlyTheNewestUserOfTheIdentifier) {
  DC_ROOT_INFOS infos{0, nullptr};
  MarkerWrapper serving("", "IFace");
  PDynClass root(&infos, "Root", nullptr, Id("Root"), nullptr, nullptr);
  PDynClass derivedUser(&infos, "DerivedUser", &root, Id("DerivedUser"), &serving, nullptr);
  EXPECT_TRUE(root.IsAParentOfIID(Id("IFace")));
  EXPECT_TRUE(derivedUser.IsAParentOfIID(Id("IFace")));
  EXPECT_FALSE(root.IsAParentOfIID(Id("Nobody")));
  // A newer, unrelated user of the same identifier hides the derived one.
  PDynClass strangerUser(&infos, "StrangerUser", nullptr, Id("StrangerUser"), &serving, nullptr);
  EXPECT_FALSE(root.IsAParentOfIID(Id("IFace")));
}

TEST(PDynClass, ClassIdentifierFoundThroughAWrappersInterfaceMapping) {
  DC_ROOT_INFOS infos{0, nullptr};
  MarkerWrapper mapping("", "", "Cls"); // serves nothing itself
  MarkerWrapper serving("", "IFace");
  PDynClass root(&infos, "Root", nullptr, Id("Root"), nullptr, nullptr);
  PDynClass user(&infos, "User", &root, Id("User"), &serving, nullptr);
  // Maps "Cls" to the null identifier: the walk goes on.
  PDynClass mapper(&infos, "Mapper", nullptr, Id("Mapper"), &mapping, nullptr);
  EXPECT_EQ(GDynClassFindCLSIDHandler(&infos, Id("Cls")), nullptr);

  MarkerWrapper toIFace("", "IFace", "Cls");
  PDynClass mapper2(&infos, "Mapper2", nullptr, Id("Mapper2"), &toIFace, nullptr);
  // "Mapper2" maps "Cls" to "IFace"; the newest user of "IFace" is
  // "Mapper2" itself (its wrapper serves it).
  EXPECT_EQ(GDynClassFindCLSIDHandler(&infos, Id("Cls")), &mapper2);
  EXPECT_STREQ(GDynClassFindCLSIDName(&infos, Id("Cls")), "Mapper2");
  // A record with the identifier itself answers before any mapping.
  EXPECT_EQ(GDynClassFindCLSIDHandler(&infos, Id("User")), &user);
  EXPECT_TRUE(root.IsAParentOfCLSID(Id("User")));
  EXPECT_FALSE(root.IsAParentOfCLSID(Id("Cls"))); // Mapper2 is not a Root
  EXPECT_FALSE(root.IsAParentOfCLSID(Id("Nobody")));
}

TEST(PDynClass, FindersAnswerTheNewestRecordThatQualifies) {
  DC_ROOT_INFOS infos{0, nullptr};
  PDynClass older(&infos, "Older", nullptr, Id("Shared"), nullptr, nullptr);
  PDynClass newer(&infos, "Newer", nullptr, Id("Shared"), nullptr, nullptr);
  EXPECT_EQ(GDynClassFindIIDHandler(&infos, Id("Shared")), &newer);
  EXPECT_EQ(GDynClassFindCLSIDHandler(&infos, Id("Shared")), &newer);
  EXPECT_STREQ(GDynClassFindCLSIDName(&infos, Id("Shared")), "Newer");
}

TEST(PDynClass, ClassIdentifierWalkTakesTheFirstAnswerNewestFirst) {
  DC_ROOT_INFOS infos{0, nullptr};
  PDynClass owner(&infos, "Owner", nullptr, Id("Cls"), nullptr, nullptr); // has the identifier
  EXPECT_EQ(GDynClassFindCLSIDHandler(&infos, Id("Cls")), &owner);
  // A newer record whose wrapper maps "Cls" to nothing: the walk goes on.
  MarkerWrapper mapsToNull("", "", "Cls");
  PDynClass mapper(&infos, "Mapper", nullptr, Id("Mapper"), &mapsToNull, nullptr);
  EXPECT_EQ(GDynClassFindCLSIDHandler(&infos, Id("Cls")), &owner);
  // A newer record whose wrapper maps "Cls" to an interface it serves is met
  // before the older record that has the identifier: its mapping answers.
  MarkerWrapper mapsToIFace("", "IFace", "Cls");
  PDynClass newest(&infos, "Newest", nullptr, Id("Newest"), &mapsToIFace, nullptr);
  EXPECT_EQ(GDynClassFindCLSIDHandler(&infos, Id("Cls")), &newest);
}

TEST(PDynClass, WrapperListIsDroppedWhenARecordWithAWrapperLeaves) {
  DC_ROOT_INFOS infos{0, nullptr};
  MarkerWrapper wa("a");
  PDynClass root(&infos, "Root", nullptr, Id("Root"), nullptr, nullptr);
  auto a = std::make_unique<PDynClass>(&infos, "A", &root, Id("A"), &wa, nullptr);
  root.MakeWrapperList();
  ASSERT_EQ(root.WrapperCount(), 1u);
  a.reset(); // as when its module is unloaded
  EXPECT_EQ(root.WrapperCount(), 0u);
  EXPECT_EQ(root.CreateClassInstance(Id("a")), nullptr); // rebuilt without it
  MarkerWrapper wb("b");
  PDynClass b(&infos, "B", &root, Id("B"), &wb, nullptr); // joins: dropped again
  EXPECT_EQ(root.WrapperCount(), 0u);
  EXPECT_EQ(root.CreateClassInstance(Id("b")), &wb);
}

} // namespace

// A family declared with the macros, as an application writes it (outside
// the anonymous namespace, as classes with external records are).
namespace shapes {
class PShape : public PRoot {
  DC_DECLARE_ROOT_CLASS(PShape)
};
class PCircle : public PShape {
  DC_DECLARE_CLASS(PCircle)
public:
  int radius = 3;
};
class PPolygon : public PShape {
  DC_DECLARE_CLASS(PPolygon)
public:
  explicit PPolygon(int corners) : m_corners(corners) {}
  int m_corners;
};
DC_DEFINE_ABSTRACT_ROOT_CLASS(PShape, PAutomaticUID("Shape"))
DC_DEFINE_CLASS(PCircle, PShape, PAutomaticUID("Circle"))
DC_DEFINE_ABSTRACT_CLASS(PPolygon, PShape, PAutomaticUID("Polygon"))
} // namespace shapes

namespace {

using shapes::PCircle;
using shapes::PPolygon;
using shapes::PShape;

TEST(DynClassMacros, DeclaredClassesAnswerTheirRecordsAndNames) {
  PCircle circle;
  const PShape& shape = circle;
  EXPECT_EQ(shape.DC(), &PCircle::dcobj_class);
  EXPECT_STREQ(shape.DC_Name(), "PCircle");
  EXPECT_TRUE(shape.DC_IsOfClass(&PShape::dcobj_class));
  EXPECT_FALSE(shape.DC_IsOfClass(&PPolygon::dcobj_class));
  EXPECT_EQ(PCircle::DC_IID(), PAutomaticUID("Circle"));
  EXPECT_EQ(PShape::DC_IID(), PAutomaticUID("Shape"));
  EXPECT_EQ(PCircle::dcobj_class.ClassParent(), &PShape::dcobj_class);
  EXPECT_EQ(PShape::dcobj_firstclass.count, 3u);
}

TEST(DynClassMacros, FamilyRootCreatesDerivedClassesByIdentifier) {
  void* made = PShape::dcobj_class.CreateClassInstance(PAutomaticUID("Circle"));
  ASSERT_NE(made, nullptr);
  std::unique_ptr<PShape> shape(static_cast<PShape*>(made));
  EXPECT_STREQ(shape->DC_Name(), "PCircle");
  EXPECT_EQ(static_cast<PCircle*>(shape.get())->radius, 3);
  EXPECT_EQ(PShape::dcobj_class.CreateClassInstance(PAutomaticUID("Square")), nullptr);
  // An abstract class is found, but has no factory.
  PError e = Caught([] { PShape::dcobj_class.CreateClassInstance(PAutomaticUID("Polygon")); });
  EXPECT_EQ(e.Code(), kErrClassWithoutConstructor);
}

} // namespace
