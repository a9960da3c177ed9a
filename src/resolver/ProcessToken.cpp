#include "resolver/ProcessToken.h"

namespace {

BOOL RealAllocateAndInitializeSid(PSID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD s0,
                                  DWORD s1, DWORD s2, DWORD s3, DWORD s4, DWORD s5, DWORD s6,
                                  DWORD s7, PSID *sid) {
    return ::AllocateAndInitializeSid(authority, count, s0, s1, s2, s3, s4, s5, s6, s7, sid);
}

BOOL RealOpenProcessToken(HANDLE process, DWORD access, HANDLE *token) {
    return ::OpenProcessToken(process, access, token);
}

BOOL RealGetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS kind, void *buffer, DWORD size,
                             DWORD *needed) {
    return ::GetTokenInformation(token, kind, buffer, size, needed);
}

const ProcessTokenApi kReal = {RealAllocateAndInitializeSid, RealOpenProcessToken,
                               RealGetTokenInformation};
ProcessTokenApi g_current = kReal;

}  // namespace

ProcessTokenApi &ProcessToken() { return g_current; }

const ProcessTokenApi &RealProcessToken() { return kReal; }
