// The type library, read back attribute by attribute.
#include "tests/com/registration.h"

#include <gtest/gtest.h>
#include <oleauto.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "concurrency/com/com_pointer.h"

namespace {

using namespace Zarvo::Test;
using Orvane::Internal::ComPointer;

std::wstring Text(const GUID& guid) {
    wchar_t text[40];
    StringFromGUID2(guid, text, 40);
    return text;
}

std::wstring Taken(BSTR text) {
    const std::wstring copy(text, SysStringLen(text));
    SysFreeString(text);
    return copy;
}

struct Documentation {
    std::wstring name;
    std::wstring help;

    friend bool operator==(const Documentation&, const Documentation&) = default;
};

template <typename Described>
Documentation DocumentationOf(Described& described, int member) {
    BSTR name = nullptr;
    BSTR help = nullptr;
    described.GetDocumentation(member, &name, &help, nullptr, nullptr);
    return {Taken(name), Taken(help)};
}

class TypeLibrary : public testing::Test {
  protected:
    void SetUp() override {
        ITypeLib* library = nullptr;
        ASSERT_EQ(LoadTypeLibEx((PathOf(LibraryUnderTest()) + L"\\3").c_str(), REGKIND_NONE, &library), S_OK);
        m_library.reset(library);
    }

    ComPointer<ITypeInfo> TypeInfo(UINT index) {
        ITypeInfo* info = nullptr;
        EXPECT_EQ(m_library->GetTypeInfo(index, &info), S_OK);
        return ComPointer<ITypeInfo>(info);
    }

    // The dual interface as it is called through its slots.
    ComPointer<ITypeInfo> InterfaceView() {
        const auto dispatch = TypeInfo(2);
        HREFTYPE reference = 0;
        EXPECT_EQ(dispatch->GetRefTypeOfImplType(static_cast<UINT>(-1), &reference), S_OK);
        ITypeInfo* info = nullptr;
        EXPECT_EQ(dispatch->GetRefTypeInfo(reference, &info), S_OK);
        return ComPointer<ITypeInfo>(info);
    }

    ComPointer<ITypeLib> m_library;
};

TEST_F(TypeLibrary, IsFutureLib) {
    TLIBATTR* attributes = nullptr;
    ASSERT_EQ(m_library->GetLibAttr(&attributes), S_OK);
    EXPECT_EQ(Text(attributes->guid), L"{55EC072B-2104-4EBD-A91F-41FA01B7F6E6}");
    EXPECT_EQ(attributes->wMajorVerNum, 1);
    EXPECT_EQ(attributes->wMinorVerNum, 0);
    EXPECT_EQ(attributes->lcid, 0x0409U);
    EXPECT_EQ(attributes->syskind, SYS_WIN64);
    m_library->ReleaseTLibAttr(attributes);
    EXPECT_EQ(DocumentationOf(*m_library, -1), (Documentation{L"FutureLib", L"FutureLib 1.0 Type Library"}));
}

TEST_F(TypeLibrary, HasTwoEnumerationsAndOneInterface) {
    ASSERT_EQ(m_library->GetTypeInfoCount(), 3U);
    const std::pair<const wchar_t*, TYPEKIND> expected[] = {
        {L"enOrvaneErrors", TKIND_ENUM}, {L"enFutureErrors", TKIND_ENUM}, {L"IFuture", TKIND_DISPATCH}};
    for (UINT index = 0; index < 3; ++index) {
        TYPEKIND kind = TKIND_MAX;
        EXPECT_EQ(m_library->GetTypeInfoType(index, &kind), S_OK);
        EXPECT_EQ(DocumentationOf(*m_library, static_cast<int>(index)).name, expected[index].first);
        EXPECT_EQ(kind, expected[index].second);
    }
}

// The constants of an enumeration by name, each a 32-bit integer.
std::vector<std::pair<std::wstring, std::uint32_t>> ConstantsOf(ITypeInfo& enumeration) {
    std::vector<std::pair<std::wstring, std::uint32_t>> constants;
    TYPEATTR* attributes = nullptr;
    enumeration.GetTypeAttr(&attributes);
    EXPECT_EQ(attributes->guid, GUID());
    for (UINT index = 0; index < attributes->cVars; ++index) {
        VARDESC* constant = nullptr;
        EXPECT_EQ(enumeration.GetVarDesc(index, &constant), S_OK);
        EXPECT_EQ(constant->varkind, VAR_CONST);
        EXPECT_EQ(constant->lpvarValue->vt, VT_I4);
        constants.emplace_back(DocumentationOf(enumeration, constant->memid).name,
                               static_cast<std::uint32_t>(constant->lpvarValue->lVal));
        enumeration.ReleaseVarDesc(constant);
    }
    enumeration.ReleaseTypeAttr(attributes);
    return constants;
}

TEST_F(TypeLibrary, NamesTheErrorsOfTheFramework) {
    const std::vector<std::pair<std::wstring, std::uint32_t>> expected{{L"E_NOTALLOWED_INSTATE", 0x80040C01U}};
    EXPECT_EQ(ConstantsOf(*TypeInfo(0)), expected);
}

TEST_F(TypeLibrary, NamesTheErrorsOfFutures) {
    const std::vector<std::pair<std::wstring, std::uint32_t>> expected{{L"E_FUTURE_CANCELLED", 0x80040D01U},
                                                                       {L"E_FUTURE_CANCELREQUESTED", 0x80040D02U},
                                                                       {L"E_FUTURE_WAITTIMEOUT", 0x80040D03U}};
    EXPECT_EQ(ConstantsOf(*TypeInfo(1)), expected);
}

TEST_F(TypeLibrary, FutureIsADualInterface) {
    for (const bool asDispatch : {true, false}) {
        const auto future = asDispatch ? TypeInfo(2) : InterfaceView();
        TYPEATTR* attributes = nullptr;
        ASSERT_EQ(future->GetTypeAttr(&attributes), S_OK);
        EXPECT_EQ(Text(attributes->guid), L"{03D3BEE8-7768-4137-A1A5-FD9C9095A237}");
        EXPECT_EQ(attributes->wTypeFlags,
                  TYPEFLAG_FDUAL | TYPEFLAG_FDISPATCHABLE | (asDispatch ? 0 : TYPEFLAG_FOLEAUTOMATION));
        EXPECT_EQ(attributes->typekind, asDispatch ? TKIND_DISPATCH : TKIND_INTERFACE);
        future->ReleaseTypeAttr(attributes);
        EXPECT_EQ(DocumentationOf(*future, MEMBERID_NIL), (Documentation{L"IFuture", L"Future interface"}));
    }
}

TEST_F(TypeLibrary, FutureDerivesFromTheStandardDispatchInterface) {
    const auto future = InterfaceView();
    TYPEATTR* attributes = nullptr;
    ASSERT_EQ(future->GetTypeAttr(&attributes), S_OK);
    EXPECT_EQ(attributes->cImplTypes, 1);
    EXPECT_EQ(attributes->cFuncs, 5);
    EXPECT_EQ(attributes->cbSizeVft, (7 + 5) * sizeof(void*));
    future->ReleaseTypeAttr(attributes);

    HREFTYPE reference = 0;
    ASSERT_EQ(future->GetRefTypeOfImplType(0, &reference), S_OK);
    ITypeInfo* base = nullptr;
    ASSERT_EQ(future->GetRefTypeInfo(reference, &base), S_OK);
    const ComPointer<ITypeInfo> owner(base);
    ASSERT_EQ(base->GetTypeAttr(&attributes), S_OK);
    EXPECT_EQ(Text(attributes->guid), L"{00020400-0000-0000-C000-000000000046}");
    base->ReleaseTypeAttr(attributes);

    ITypeLib* library = nullptr;
    UINT index = 0;
    ASSERT_EQ(base->GetContainingTypeLib(&library, &index), S_OK);
    const ComPointer<ITypeLib> libraryOwner(library);
    TLIBATTR* libraryAttributes = nullptr;
    ASSERT_EQ(library->GetLibAttr(&libraryAttributes), S_OK);
    EXPECT_EQ(Text(libraryAttributes->guid), L"{00020430-0000-0000-C000-000000000046}");
    library->ReleaseTLibAttr(libraryAttributes);
}

struct Parameter {
    std::wstring name;
    VARTYPE type = VT_EMPTY;
    VARTYPE pointsTo = VT_EMPTY;
    USHORT flags = 0;

    friend bool operator==(const Parameter&, const Parameter&) = default;
};

struct Member {
    std::wstring name;
    MEMBERID id = 0;
    INVOKEKIND kind = INVOKE_FUNC;
    int slot = 0;
    VARTYPE result = VT_EMPTY;
    std::vector<Parameter> parameters;

    friend bool operator==(const Member&, const Member&) = default;
};

Member MemberOf(ITypeInfo& info, UINT index) {
    Member member;
    FUNCDESC* function = nullptr;
    EXPECT_EQ(info.GetFuncDesc(index, &function), S_OK);
    EXPECT_EQ(function->funckind, FUNC_PUREVIRTUAL);
    EXPECT_EQ(function->callconv, CC_STDCALL);
    BSTR names[4] = {};
    UINT count = 0;
    EXPECT_EQ(info.GetNames(function->memid, names, 4, &count), S_OK);
    member.name = Taken(names[0]);
    member.id = function->memid;
    member.kind = function->invkind;
    member.slot = function->oVft / static_cast<int>(sizeof(void*));
    member.result = function->elemdescFunc.tdesc.vt;
    for (SHORT position = 0; position < function->cParams; ++position) {
        const ELEMDESC& described = function->lprgelemdescParam[position];
        Parameter parameter;
        if (static_cast<UINT>(position) + 1 < count) {
            parameter.name = Taken(names[position + 1]);
        }
        parameter.type = described.tdesc.vt;
        parameter.pointsTo = parameter.type == VT_PTR ? described.tdesc.lptdesc->vt : VARTYPE(VT_EMPTY);
        parameter.flags = described.paramdesc.wParamFlags;
        member.parameters.push_back(parameter);
    }
    info.ReleaseFuncDesc(function);
    return member;
}

TEST_F(TypeLibrary, FutureHasFiveMembersInThisOrder) {
    constexpr USHORT kResult = PARAMFLAG_FOUT | PARAMFLAG_FRETVAL;
    const std::vector<Member> expected{
        {L"Cancel", 1, INVOKE_FUNC, 7, VT_HRESULT, {}},
        {L"Wait", 2, INVOKE_FUNC, 8, VT_HRESULT, {}},
        {L"TimedWait", 3, INVOKE_FUNC, 9, VT_HRESULT, {{L"timeoutInMilliSeconds", VT_I4, VT_EMPTY, PARAMFLAG_NONE}}},
        {L"IsNormal", 4, INVOKE_PROPERTYGET, 10, VT_HRESULT, {{L"IsNormal", VT_PTR, VT_BOOL, kResult}}},
        {L"IsReady", 5, INVOKE_PROPERTYGET, 11, VT_HRESULT, {{L"IsReady", VT_PTR, VT_BOOL, kResult}}},
    };
    const auto future = InterfaceView();
    for (UINT index = 0; index < 5; ++index) {
        EXPECT_EQ(MemberOf(*future, index), expected[index]) << "member " << index;
    }
}

// What loading by the bare path would need is not there: the resource's number belongs to the path.
TEST_F(TypeLibrary, IsFoundByItsNumberOnly) {
    ITypeLib* library = nullptr;
    EXPECT_TRUE(FAILED(LoadTypeLibEx(PathOf(LibraryUnderTest()).c_str(), REGKIND_NONE, &library)));
}

}  // namespace
