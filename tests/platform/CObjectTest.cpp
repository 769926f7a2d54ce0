#include "platform/CObject.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace {

class CTestShape : public CObject {
    DECLARE_SERIAL(CTestShape)

public:
    CTestShape() = default;
    int m_nSides = 4;
};

class CTestTriangle : public CTestShape {
    DECLARE_SERIAL(CTestTriangle)

public:
    CTestTriangle() { m_nSides = 3; }
};

class CTestUncreatable : public CObject {
    DECLARE_DYNAMIC(CTestUncreatable)
};

} // namespace

IMPLEMENT_SERIAL(CTestShape, CObject, 0)
IMPLEMENT_SERIAL(CTestTriangle, CTestShape, 2)
IMPLEMENT_DYNAMIC(CTestUncreatable, CObject)

namespace {

TEST(CRuntimeClassCreate, RegisteredSerialClassIsMadeByName)
{
    std::unique_ptr<CObject> pObject(CRuntimeClass::CreateObject("CTestTriangle"));
    ASSERT_NE(pObject, nullptr);
    ASSERT_TRUE(pObject->IsKindOf(RUNTIME_CLASS(CTestTriangle)));
    EXPECT_EQ(static_cast<CTestTriangle*>(pObject.get())->m_nSides, 3);
    EXPECT_EQ(pObject->GetRuntimeClass(), RUNTIME_CLASS(CTestTriangle));

    CRuntimeClass* pClass = CRuntimeClass::FromName("CTestShape");
    ASSERT_EQ(pClass, RUNTIME_CLASS(CTestShape));
    std::unique_ptr<CObject> pShape(pClass->CreateObject());
    ASSERT_NE(pShape, nullptr);
    EXPECT_EQ(pShape->GetRuntimeClass(), RUNTIME_CLASS(CTestShape));
}

TEST(CRuntimeClassCreate, UnknownOrUncreatableNamesGiveNull)
{
    EXPECT_EQ(CRuntimeClass::CreateObject("CNoSuchClass"), nullptr);
    EXPECT_EQ(CRuntimeClass::CreateObject("ctestshape"), nullptr);
    EXPECT_EQ(CRuntimeClass::CreateObject(nullptr), nullptr);
    EXPECT_EQ(CRuntimeClass::FromName(nullptr), nullptr);
    EXPECT_EQ(CRuntimeClass::FromName("CTestUncreatable"), RUNTIME_CLASS(CTestUncreatable));
    EXPECT_EQ(CRuntimeClass::CreateObject("CTestUncreatable"), nullptr);
    EXPECT_EQ(CRuntimeClass::CreateObject("CObject"), nullptr);
}

TEST(CObjectKind, IsKindOfWalksTheBaseClasses)
{
    CTestTriangle triangle;
    CTestShape shape;
    CTestUncreatable other;
    EXPECT_TRUE(triangle.IsKindOf(RUNTIME_CLASS(CTestShape)));
    EXPECT_TRUE(triangle.IsKindOf(RUNTIME_CLASS(CObject)));
    EXPECT_FALSE(shape.IsKindOf(RUNTIME_CLASS(CTestTriangle)));
    EXPECT_FALSE(other.IsKindOf(RUNTIME_CLASS(CTestShape)));
    EXPECT_FALSE(triangle.IsKindOf(nullptr));
    EXPECT_TRUE(triangle.IsSerializable());
    EXPECT_FALSE(other.IsSerializable());
    EXPECT_EQ(RUNTIME_CLASS(CTestTriangle)->m_wSchema, 2u);
}

} // namespace
