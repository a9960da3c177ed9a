// The process token seam, for the local-system test (IsLocalSystem).
#pragma once

#include <windows.h>

#include "util/Seam.h"

struct ProcessTokenApi {
    BOOL (*AllocateAndInitializeSid)(PSID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD s0,
                                     DWORD s1, DWORD s2, DWORD s3, DWORD s4, DWORD s5, DWORD s6,
                                     DWORD s7, PSID *sid);
    BOOL (*OpenProcessToken)(HANDLE process, DWORD access, HANDLE *token);
    BOOL (*GetTokenInformation)(HANDLE token, TOKEN_INFORMATION_CLASS kind, void *buffer,
                                DWORD size, DWORD *needed);
};

ProcessTokenApi &ProcessToken();
const ProcessTokenApi &RealProcessToken();
using ScopedProcessToken = ScopedSeam<ProcessTokenApi, ProcessToken>;
