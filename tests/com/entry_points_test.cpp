// The module as a COM server: it offers no class and nothing holds it.
#include "tests/com/registration.h"

#include <gtest/gtest.h>
#include <objbase.h>

namespace {

using namespace Zarvo::Test;

HRESULT GetClassObject(REFCLSID classId, REFIID interfaceId, void** object) {
    using EntryPoint = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    const auto entryPoint =
        reinterpret_cast<EntryPoint>(reinterpret_cast<void*>(GetProcAddress(LibraryUnderTest(), "DllGetClassObject")));
    return entryPoint(classId, interfaceId, object);
}

TEST(EntryPoints, NoClassIsAvailable) {
    constexpr GUID kClasses[] = {
        {},
        {0x55EC072B, 0x2104, 0x4EBD, {0xA9, 0x1F, 0x41, 0xFA, 0x01, 0xB7, 0xF6, 0xE6}},
        {0x03D3BEE8, 0x7768, 0x4137, {0xA1, 0xA5, 0xFD, 0x9C, 0x90, 0x95, 0xA2, 0x37}},
        {0x12345678, 0x1234, 0x1234, {1, 2, 3, 4, 5, 6, 7, 8}},
    };
    for (const GUID& classId : kClasses) {
        int marker = 0;
        void* object = &marker;
        EXPECT_EQ(GetClassObject(classId, IID_IClassFactory, &object), CLASS_E_CLASSNOTAVAILABLE);
        EXPECT_EQ(object, nullptr);
    }
}

TEST(EntryPoints, ClassObjectsNeedAPlaceToGo) {
    EXPECT_EQ(GetClassObject(GUID(), IID_IClassFactory, nullptr), E_POINTER);
}

TEST(EntryPoints, NothingHoldsTheModule) {
    EXPECT_EQ(CallEntryPoint("DllCanUnloadNow"), S_OK);
}

}  // namespace
