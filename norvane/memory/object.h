// Object bases whose new and delete go through Norvane's memory managers.
//
// CKD_Object: new allocates from the default manager with flags 0 (the plain forms through the
// system manager's Alloc slot, the forms with file and line through AllocDebug), so a failure
// calls the out-of-memory handler and the new-expression yields null without constructing.
// delete returns the block to the default manager. Concrete library classes derive from it.
//
// CKD_AllocObject: new takes the IKD_Allocator to allocate from (null: the default manager) and
// records it in the object's first field, where delete finds it again. CKD_AllocObject must
// therefore start the object: derive from it first, in a class with no virtual functions. With
// the default manager, a failed new tells the debugger, calls the handler and then stops the
// process: that new never yields null. With a given allocator, a failure yields null.
#ifndef NORVANE_MEMORY_OBJECT_H_
#define NORVANE_MEMORY_OBJECT_H_

#include <cstddef>

#include "norvane/config.h"
#include "norvane/memory/memory_mgr.h"

// CKD_Object is the base of objects allocated from the default manager: new gives null (and no
// object) when memory cannot be had, after the out-of-memory handler ran; delete frees through
// the default manager. Derive from it as a second base of concrete classes.
class NORVANE_API CKD_Object {
 public:
  static void* operator new(size_t size) noexcept;
  static void* operator new[](size_t size) noexcept;
  static void* operator new(size_t size, const char* file, int line) noexcept;
  static void* operator new[](size_t size, const char* file, int line) noexcept;
  // The deletes free a non-null block through the default manager.
  static void operator delete(void* block) noexcept;
  static void operator delete[](void* block) noexcept;
  static void operator delete(void* block, const char* file, int line) noexcept;
  static void operator delete[](void* block, const char* file, int line) noexcept;
};

// CKD_AllocObject is the base of objects allocated from a given IKD_Allocator, which the object
// records in its first field so that delete finds it. It must be the first base, in a class
// without virtual functions. new with a null allocator never yields null: it stops the process
// when the default manager cannot give memory.
class NORVANE_API CKD_AllocObject {
 public:
  static void* operator new(size_t size, IKD_Allocator* allocator) noexcept;
  static void* operator new(size_t size, IKD_Allocator* allocator, const char* file, int line) noexcept;
  // delete frees through the allocator recorded in the object, or the default manager.
  static void operator delete(void* block) noexcept;
  // The forms given an allocator free through it (null: the default manager). They run when a
  // constructor throws.
  static void operator delete(void* block, IKD_Allocator* allocator) noexcept;
  static void operator delete(void* block, IKD_Allocator* allocator, const char* file, int line) noexcept;

  // Written by new before construction; the constructor leaves it alone.
  IKD_Allocator* m_pAllocator;

 protected:
  // Deliberately does not initialise m_pAllocator: new has already stored it.
  CKD_AllocObject() noexcept {}  // NOLINT(cppcoreguidelines-pro-type-member-init)
};

static_assert(sizeof(CKD_AllocObject) == sizeof(void*) && offsetof(CKD_AllocObject, m_pAllocator) == 0,
              "the allocator is the first field");

#endif  // NORVANE_MEMORY_OBJECT_H_
