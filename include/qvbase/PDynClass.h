// PDynClass.h - a light run-time class system: classes described, tested,
// cast and created by identifier.
// Part of qvbase, the QVKernel foundation class library.
//
// Each participating class has one static PDynClass record: its name, its
// parent's record, its class identifier and, when instances can be made by
// identifier, a factory. Records register themselves at static construction
// in their family's registry (a DC_ROOT_INFOS, one per family root), newest
// first, and leave it when they are destroyed: a module's records leave the
// family when the module is unloaded. The library answers whether one class
// derives from another and how many steps apart they are, casts when
// compatible, and creates an instance of the class that has a given
// identifier; a PDynClassWrapper extends a class with further identifiers it
// can create.
//
// A class takes part with one line in its body and one in a source file:
//
//   class PGreeting : public PMessageData {
//     DC_DECLARE_CLASS(PGreeting)
//   public:
//     PString text;
//   };
//   DC_DEFINE_CLASS(PGreeting, PMessageData, PAutomaticUID("Greeting"))
//
// A family's root uses DC_DECLARE_ROOT_CLASS and DC_DEFINE_ROOT_CLASS (or
// their abstract forms) instead. The declaration macros declare public
// members and leave the access public: write them first in the class body.
// DC_DEFINE_CLASS makes instances with the default constructor; a class
// without one (or an abstract class) uses DC_DEFINE_ABSTRACT_CLASS, and
// DC_DEFINE_CLASS_WITH names the wrapper and the factory itself.
//
// Instances made through the records, and objects passed to the casts, are
// pointers to the family root type, as void*: cast them back with
// static_cast<Root*>.
//
// No locks: records register during static construction (or a module's
// load), which the platform serialises; queries afterwards only read.
#pragma once

#include <qvbase/PList.h>
#include <qvbase/PRoot.h>
#include <qvbase/PUniversalID.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

class PDynClass;

// "Not derived": what the distances answer when the walk ends without a match.
constexpr ULONG kDynClassNoDistance = 0xFFFFFFFFu;

// The registry of one class family.
struct DC_ROOT_INFOS {
  ULONG count;      // registered records
  PDynClass* first; // the most recently registered record
};

// An extension attached to a class record: it creates instances for
// identifiers beyond the class's own, tells which interface identifiers it
// serves, and maps class identifiers to interface identifiers.
class QVBASE_API PDynClassWrapper : public PRoot {
public:
  ~PDynClassWrapper() override;

  // A new instance (a pointer to the family root type) for `id`, or null
  // when the wrapper does not make that identifier.
  virtual void* CreateClassInstance(const PUniversalID& id) const = 0;
  // Whether the wrapper serves the interface identifier `id`.
  virtual bool IsUsingIID(const PUniversalID& id) const = 0;
  // The interface identifier that stands for the class identifier `clsid`;
  // the null identifier when there is none (the default).
  virtual PUniversalID MapCLSIDToIID(const PUniversalID& clsid) const;
};

// The record of one class: name, parent, identifier, wrapper and factory,
// linked into its family's registry while it lives.
class QVBASE_API PDynClass : public PRoot {
public:
  typedef void* (*Constructor)();

  // Stores the fields and registers the record at the head of `root`'s
  // family, which then holds one more record.
  PDynClass(DC_ROOT_INFOS* root, const char* name, const PDynClass* parent, const PUniversalID& id,
            const PDynClassWrapper* wrapper, Constructor constructor);
  // Unlinks the record from its family (joining its neighbours), which then
  // holds one less, clears the fields and deletes the wrapper list.
  ~PDynClass() override;
  // A record is its class: it is neither copied nor assigned.
  PDynClass(const PDynClass&) = delete;
  PDynClass& operator=(const PDynClass&) = delete;

  const char* ClassName() const { return m_name; }
  const PUniversalID& ClassIID() const { return m_id; }
  const PDynClassWrapper* ClassWrapper() const { return m_wrapper; }
  Constructor ClassConstructor() const { return m_constructor; }
  const PDynClass* ClassParent() const { return m_parent; }
  // The family, and the neighbours in it: Next is the record registered
  // just before this one (older), Previous the one just after (newer).
  DC_ROOT_INFOS* ClassRoot() const { return m_root; }
  const PDynClass* Next() const { return m_next; }
  const PDynClass* Previous() const { return m_previous; }

  // True when both identifiers are equal and neither is null: a null
  // identifier never matches, not even another null one.
  bool IsClassIID(const PUniversalID& id) const;
  // `other` is this record, or has the same (non-null) identifier.
  bool IsClass(const PDynClass* other) const;
  // IsClassIID(id), or the wrapper serves `id`.
  bool IsUsingIID(const PUniversalID& id) const;

  // Steps from this record up through the parents to the first that is
  // `target` or has its identifier: 0 for the record itself, 1 for its
  // parent; kDynClassNoDistance when no ancestor matches.
  ULONG DistanceTo(const PDynClass* target) const;
  // The same walk, matching identifiers only.
  ULONG DistanceToIID(const PUniversalID& id) const;

  bool IsAChildOf(const PDynClass* other) const;
  bool IsAParentOf(const PDynClass* other) const;
  bool IsAChildOfIID(const PUniversalID& id) const;
  // The newest record of the family that uses `id` (IsUsingIID) derives
  // from this one; false when no record uses it.
  bool IsAParentOfIID(const PUniversalID& id) const;
  // GDynClassFindCLSIDHandler finds a record for `id` that derives from
  // this one.
  bool IsAParentOfCLSID(const PUniversalID& id) const;

  // `object` when this class derives from `target`, else null.
  void* DynClassCast(void* object, const PDynClass* target) const;
  const void* DynClassCast(const void* object, const PDynClass* target) const;

  // A new instance from the factory. Without one, raises error 1009
  // (severity 25) and, when that returns, answers null.
  void* CreateClassInstance() const;
  // A new instance of the newest class of the family that derives from this
  // one and has the identifier `id`; else the first that a wrapper of a
  // derived class makes (most derived classes first, see MakeWrapperList);
  // else null.
  void* CreateClassInstance(const PUniversalID& id) const;

  // Builds the list of the wrappers of the classes that derive from this one
  // (this one included), ordered by decreasing distance - the most derived
  // first; among equal distances the more recently registered first. It is
  // built on first need, and dropped whenever a record with a wrapper joins
  // or leaves the family (so that it never names the wrapper of an unloaded
  // module); UnmakeWrapperList drops it at once.
  void MakeWrapperList() const;
  void UnmakeWrapperList() const;
  // The list as built (MakeWrapperList first): its length and its entries.
  ULONG WrapperCount() const;
  const PDynClassWrapper* WrapperAt(ULONG index) const;

private:
  void DropWrapperListsOfFamily() const;

  DC_ROOT_INFOS* m_root;
  PDynClass* m_next;
  PDynClass* m_previous;
  const PDynClass* m_parent;
  const char* m_name;
  PUniversalID m_id;
  const PDynClassWrapper* m_wrapper;
  Constructor m_constructor;
  mutable PList* m_wrapperList; // built on first need, owned
};

// The newest record of the family that uses `id` (IsUsingIID); null when
// none does.
QVBASE_API const PDynClass* GDynClassFindIIDHandler(DC_ROOT_INFOS* root, const PUniversalID& id);
// That record's name, or "Unknown object".
QVBASE_API const char* GDynClassFindIIDName(DC_ROOT_INFOS* root, const PUniversalID& id);
// The newest record of the family whose identifier is `id`; a record with a
// wrapper that maps `id` to an interface identifier answers with the record
// that uses that identifier instead (GDynClassFindIIDHandler), when there
// is one. Null when the walk finds nothing.
QVBASE_API const PDynClass* GDynClassFindCLSIDHandler(DC_ROOT_INFOS* root, const PUniversalID& id);
// That record's name, or "Unknown object".
QVBASE_API const char* GDynClassFindCLSIDName(DC_ROOT_INFOS* root, const PUniversalID& id);

// --- Declaring and defining dynamic classes -------------------------------

// In the body of a family's root class: its registry, its record, and the
// DC_ members every class of the family has.
#define DC_DECLARE_ROOT_CLASS(Class)                                                               \
public:                                                                                            \
  typedef Class DC_RootType;                                                                       \
  static DC_ROOT_INFOS dcobj_firstclass;                                                           \
  static PDynClass dcobj_class;                                                                    \
  static const PUniversalID& DC_IID();                                                             \
  virtual const PDynClass* DC() const;                                                             \
  const char* DC_Name() const;                                                                     \
  bool DC_IsOfClass(const PDynClass* dynClass) const;

// In the body of every other class of the family.
#define DC_DECLARE_CLASS(Class)                                                                    \
public:                                                                                            \
  static PDynClass dcobj_class;                                                                    \
  static const PUniversalID& DC_IID();                                                             \
  const PDynClass* DC() const override;

// The members every class defines, whatever its definition form.
#define DC_DEFINE_CLASS_MEMBERS(Class)                                                             \
  const PUniversalID& Class::DC_IID() { return Class::dcobj_class.ClassIID(); }                    \
  const PDynClass* Class::DC() const { return &Class::dcobj_class; }

// The factory of a creatable class: a new instance with the default
// constructor, as a pointer to the family root.
#define DC_CONSTRUCTOR(Class)                                                                      \
  ([]() -> void* { return static_cast<Class::DC_RootType*>(new (Class)); })

// In one source file. A root class: creatable, or abstract (no factory).
#define DC_DEFINE_ROOT_CLASS_WITH(Class, id, wrapper, constructor)                                 \
  DC_ROOT_INFOS Class::dcobj_firstclass = {0, nullptr};                                            \
  PDynClass Class::dcobj_class(&Class::dcobj_firstclass, #Class, nullptr, id, wrapper,             \
                               constructor);                                                       \
  const char* Class::DC_Name() const { return DC()->ClassName(); }                                 \
  bool Class::DC_IsOfClass(const PDynClass* dynClass) const { return DC()->IsAChildOf(dynClass); } \
  DC_DEFINE_CLASS_MEMBERS(Class)
#define DC_DEFINE_ROOT_CLASS(Class, id)                                                            \
  DC_DEFINE_ROOT_CLASS_WITH(Class, id, nullptr, DC_CONSTRUCTOR(Class))
#define DC_DEFINE_ABSTRACT_ROOT_CLASS(Class, id)                                                   \
  DC_DEFINE_ROOT_CLASS_WITH(Class, id, nullptr, nullptr)

// In one source file. Any other class, with its parent: creatable,
// abstract, or with a wrapper and a factory of its own.
#define DC_DEFINE_CLASS_WITH(Class, Parent, id, wrapper, constructor)                              \
  PDynClass Class::dcobj_class(&Class::DC_RootType::dcobj_firstclass, #Class,                      \
                               &Parent::dcobj_class, id, wrapper, constructor);                    \
  DC_DEFINE_CLASS_MEMBERS(Class)
#define DC_DEFINE_CLASS(Class, Parent, id)                                                         \
  DC_DEFINE_CLASS_WITH(Class, Parent, id, nullptr, DC_CONSTRUCTOR(Class))
#define DC_DEFINE_ABSTRACT_CLASS(Class, Parent, id)                                                \
  DC_DEFINE_CLASS_WITH(Class, Parent, id, nullptr, nullptr)
