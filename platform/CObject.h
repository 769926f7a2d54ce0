// The root of the library's object classes: a runtime class with name, schema number and
// creation by name, and the Serialize hook. Objects are owned by whoever made them; the
// class registry is thread-safe, an object itself is thread-bound.
#pragma once

#include "platform/Export.h"
#include "platform/WinTypes.h"

class CArchive;
class CObject;

// Description of one class: what IsKindOf walks and what CreateObject calls. Instances
// are constant-initialised statics made by the declare/implement macros below.
struct ZNDVR_API CRuntimeClass {
    LPCSTR m_lpszClassName;
    int m_nObjectSize;
    UINT m_wSchema;                       // AFX_SCHEMA_NONE: not serializable
    CObject* (*m_pfnCreateObject)();      // null for classes that cannot be made by name
    CRuntimeClass* m_pBaseClass;          // null for CObject itself

    // A new object of this class, or null when the class has no creator or memory is out.
    CObject* CreateObject() const;
    BOOL IsDerivedFrom(const CRuntimeClass* pBaseClass) const;

    // The registered class of that exact name, or null. Every class made with the
    // IMPLEMENT_ macros registers itself when its translation unit is linked in.
    static CRuntimeClass* FromName(LPCSTR lpszClassName);
    // A new object of the registered class of that name, or null.
    static CObject* CreateObject(LPCSTR lpszClassName);
};

inline constexpr UINT AFX_SCHEMA_NONE = 0xFFFF;

// Enters a runtime class into the registry that FromName searches, at static
// initialisation of the translation unit that implements the class.
struct ZNDVR_API AFX_CLASSINIT {
    explicit AFX_CLASSINIT(CRuntimeClass* pNewClass);
};

class ZNDVR_API CObject {
public:
    virtual ~CObject();

    virtual CRuntimeClass* GetRuntimeClass() const;
    BOOL IsKindOf(const CRuntimeClass* pClass) const;
    BOOL IsSerializable() const;

    // Writes or reads the object's own fields; the root has none.
    virtual void Serialize(CArchive& ar);

    static CRuntimeClass classCObject;

    CObject(const CObject&) = delete;
    CObject& operator=(const CObject&) = delete;

protected:
    CObject() = default;
};

#define RUNTIME_CLASS(class_name) (&class_name::class##class_name)

#define DECLARE_DYNAMIC(class_name) \
public: \
    static CRuntimeClass class##class_name; \
    CRuntimeClass* GetRuntimeClass() const override;

#define DECLARE_DYNCREATE(class_name) \
    DECLARE_DYNAMIC(class_name) \
    static CObject* CreateObject();

#define DECLARE_SERIAL(class_name) DECLARE_DYNCREATE(class_name)

#define ZNDVR_IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, wSchema, pfnNew) \
    CRuntimeClass class_name::class##class_name = { \
        #class_name, static_cast<int>(sizeof(class_name)), wSchema, pfnNew, \
        RUNTIME_CLASS(base_class_name)}; \
    CRuntimeClass* class_name::GetRuntimeClass() const \
    { \
        return RUNTIME_CLASS(class_name); \
    } \
    static const AFX_CLASSINIT s_classInit##class_name(RUNTIME_CLASS(class_name));

#define IMPLEMENT_DYNAMIC(class_name, base_class_name) \
    ZNDVR_IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, AFX_SCHEMA_NONE, nullptr)

#define IMPLEMENT_DYNCREATE(class_name, base_class_name) \
    CObject* class_name::CreateObject() \
    { \
        return new class_name; \
    } \
    ZNDVR_IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, AFX_SCHEMA_NONE, \
                                 class_name::CreateObject)

#define IMPLEMENT_SERIAL(class_name, base_class_name, wSchema) \
    CObject* class_name::CreateObject() \
    { \
        return new class_name; \
    } \
    ZNDVR_IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, wSchema, class_name::CreateObject)
