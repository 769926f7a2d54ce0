#include "platform/CObject.h"

#include <cstring>
#include <mutex>
#include <new>
#include <vector>

namespace {

// The registered classes. Registration happens during static initialisation of each
// translation unit, lookups at any time from any thread.
struct tag_CLASSREGISTRY {
    std::mutex m_mutex;
    std::vector<CRuntimeClass*> m_vecClasses;
};

tag_CLASSREGISTRY& GetClassRegistry()
{
    static tag_CLASSREGISTRY s_registry;
    return s_registry;
}

} // namespace

CRuntimeClass CObject::classCObject = {"CObject", static_cast<int>(sizeof(CObject)), AFX_SCHEMA_NONE,
                                       nullptr, nullptr};

static const AFX_CLASSINIT s_classInitCObject(RUNTIME_CLASS(CObject));

AFX_CLASSINIT::AFX_CLASSINIT(CRuntimeClass* pNewClass)
{
    tag_CLASSREGISTRY& registry = GetClassRegistry();
    std::lock_guard lock(registry.m_mutex);
    registry.m_vecClasses.push_back(pNewClass);
}

CObject* CRuntimeClass::CreateObject() const
{
    if (m_pfnCreateObject == nullptr)
        return nullptr;
    try {
        return m_pfnCreateObject();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

BOOL CRuntimeClass::IsDerivedFrom(const CRuntimeClass* pBaseClass) const
{
    if (pBaseClass == nullptr)
        return FALSE;
    for (const CRuntimeClass* pClass = this; pClass != nullptr; pClass = pClass->m_pBaseClass) {
        if (pClass == pBaseClass)
            return TRUE;
    }
    return FALSE;
}

CRuntimeClass* CRuntimeClass::FromName(LPCSTR lpszClassName)
{
    if (lpszClassName == nullptr)
        return nullptr;
    tag_CLASSREGISTRY& registry = GetClassRegistry();
    std::lock_guard lock(registry.m_mutex);
    for (CRuntimeClass* pClass : registry.m_vecClasses) {
        if (std::strcmp(pClass->m_lpszClassName, lpszClassName) == 0)
            return pClass;
    }
    return nullptr;
}

CObject* CRuntimeClass::CreateObject(LPCSTR lpszClassName)
{
    const CRuntimeClass* pClass = FromName(lpszClassName);
    return pClass == nullptr ? nullptr : pClass->CreateObject();
}

CObject::~CObject() = default;

CRuntimeClass* CObject::GetRuntimeClass() const
{
    return RUNTIME_CLASS(CObject);
}

BOOL CObject::IsKindOf(const CRuntimeClass* pClass) const
{
    return GetRuntimeClass()->IsDerivedFrom(pClass);
}

BOOL CObject::IsSerializable() const
{
    return GetRuntimeClass()->m_wSchema != AFX_SCHEMA_NONE ? TRUE : FALSE;
}

void CObject::Serialize(CArchive&)
{
}
