// CSmartPointer<T>: sole owner of one object made with new (for the library's classes, new of
// CKD_Object), deleted when the pointer is destroyed or given another object. It moves but does
// not copy. Null is allowed everywhere.
#ifndef NORVANE_CRYPTO_SMART_POINTER_H_
#define NORVANE_CRYPTO_SMART_POINTER_H_

// CSmartPointer<T> owns one object made with new and deletes it.
template <class T>
class CSmartPointer {
 public:
  explicit CSmartPointer(T* object = nullptr) : m_pObject(object) {}
  CSmartPointer(CSmartPointer&& other) noexcept : m_pObject(other.m_pObject) { other.m_pObject = nullptr; }
  CSmartPointer& operator=(CSmartPointer&& other) noexcept {
    if (this != &other) Reset(other.Detach());
    return *this;
  }
  CSmartPointer(const CSmartPointer&) = delete;
  CSmartPointer& operator=(const CSmartPointer&) = delete;
  ~CSmartPointer() { delete m_pObject; }

  T* Get() const { return m_pObject; }
  T& operator*() const { return *m_pObject; }
  T* operator->() const { return m_pObject; }
  explicit operator bool() const { return m_pObject != nullptr; }
  // Reset deletes the object held and takes object instead.
  void Reset(T* object = nullptr) {
    T* old = m_pObject;
    m_pObject = object;
    delete old;
  }
  // Detach gives up the object without deleting it.
  T* Detach() {
    T* object = m_pObject;
    m_pObject = nullptr;
    return object;
  }

 private:
  T* m_pObject;
};

#endif  // NORVANE_CRYPTO_SMART_POINTER_H_
