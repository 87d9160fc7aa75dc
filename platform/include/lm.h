// Accounts of this computer.
#pragma once

#include "win/types.h"

#define USER_PRIV_GUEST 0u
#define USER_PRIV_USER 1u
#define USER_PRIV_ADMIN 2u
#define ERROR_BAD_NETPATH 53
#define ERROR_INVALID_LEVEL 124
#define NERR_Success 0u
#define NERR_UserNotFound 2221u

struct USER_INFO_11 {
    LPWSTR usri11_name;
    LPWSTR usri11_comment;
    LPWSTR usri11_usr_comment;
    LPWSTR usri11_full_name;
    DWORD usri11_priv;
    DWORD usri11_auth_flags;
    DWORD usri11_password_age;
    LPWSTR usri11_home_dir;
    LPWSTR usri11_parms;
    DWORD usri11_last_logon;
    DWORD usri11_last_logoff;
    DWORD usri11_bad_pw_count;
    DWORD usri11_num_logons;
    LPWSTR usri11_logon_server;
    DWORD usri11_country_code;
    LPWSTR usri11_workstation;
    DWORD usri11_max_storage;
    DWORD usri11_units_per_week;
    BYTE* usri11_logon_hours;
    DWORD usri11_code_page;
};

// Level 11 of an account of this computer, from NSS: name, full name, home folder and privilege (USER_PRIV_ADMIN for
// who is an administrator by the layer's rule); the other texts are empty, the other numbers 0. One block, for
// NetApiBufferFree. 2221 for nobody's name, 124 for another level, 53 for another computer.
OVLAYER_API DWORD WINAPI NetUserGetInfo(LPCWSTR server, LPCWSTR user, DWORD level, BYTE** buffer);
OVLAYER_API DWORD WINAPI NetApiBufferFree(LPVOID buffer);
