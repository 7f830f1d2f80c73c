// The apartments of COM.
#pragma once

#include "tests/host/windows/errors.h"

enum COINIT { COINIT_MULTITHREADED = 0, COINIT_APARTMENTTHREADED = 2 };
enum APTTYPE { APTTYPE_CURRENT = -1, APTTYPE_STA = 0, APTTYPE_MTA = 1, APTTYPE_NA = 2, APTTYPE_MAINSTA = 3 };
enum APTTYPEQUALIFIER { APTTYPEQUALIFIER_NONE = 0, APTTYPEQUALIFIER_IMPLICIT_MTA = 1 };

extern "C" {
HRESULT CoInitializeEx(LPVOID reserved, DWORD kind);
void CoUninitialize();
HRESULT CoGetApartmentType(APTTYPE* type, APTTYPEQUALIFIER* qualifier);
}
