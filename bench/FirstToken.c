// A client program's whole life: loads a library, makes its first token with a ticket at hand, ends. By the exports or
// by GSS-API, each loaded the same way: first_token exports|gss SERVICE HOST LIBRARIES... (in the order of loading, the
// last one's functions are called; one that is loaded already is not looked for).
#include <dlfcn.h>
#include <gssapi/gssapi.h>
#include <stdio.h>
#include <string.h>

#include "morwen/morwenplugin.h"

static void* Function(void* i_pvLibrary, const char* i_pszName) {
    void* pvFunction = dlsym(i_pvLibrary, i_pszName);
    if (pvFunction == NULL) {
        (void)fprintf(stderr, "first_token: there is no %s\n", i_pszName);
    }
    return pvFunction;
}

// The functions have their declared types; the conversion goes through memory, because C knows none from void*.
#define TAKE(library, name)                              \
    __typeof__(name)* p_##name = NULL;                   \
    {                                                    \
        void* pv_##name = Function(library, #name);      \
        if (pv_##name == NULL) {                         \
            return 1;                                    \
        }                                                \
        memcpy(&p_##name, &pv_##name, sizeof pv_##name); \
    }

static int ByExports(void* i_pvLibrary, const char* i_pszService, const char* i_pszHost) {
    TAKE(i_pvLibrary, SSOInitPackage)
    TAKE(i_pvLibrary, SSOStartLogin)
    TAKE(i_pvLibrary, SSOFreeBuffer)
    TAKE(i_pvLibrary, SSOFreeString)
    TAKE(i_pvLibrary, SSOTermPackage)
    SSOChar spn[256];
    size_t nLength = 0;
    for (const char* psz = i_pszService; *psz != '\0' && nLength < 100; ++psz) {
        spn[nLength++] = (SSOChar)*psz;
    }
    spn[nLength++] = '/';
    for (const char* psz = i_pszHost; *psz != '\0' && nLength < 255; ++psz) {
        spn[nLength++] = (SSOChar)*psz;
    }
    spn[nLength] = 0;
    const ParasSeq parameters = {u"" SSO_KEY_SPN, SSO_PARAMETER_STRING, spn, NULL};
    SSOChar* pszKey = NULL;
    void* pvToken = NULL;
    SSOLength nToken = 0;
    const int nFailed =
        p_SSOInitPackage() != SSO_OK ||
        p_SSOStartLogin(NULL, NULL, u"" SSO_PROVIDER_SSPI, &parameters, &pszKey, &pvToken, &nToken) != SSO_CONTINUE ||
        nToken == 0;
    p_SSOFreeBuffer(pvToken);
    p_SSOFreeString(pszKey);
    p_SSOTermPackage();
    return nFailed;
}

static int ByGss(void* i_pvLibrary, const char* i_pszService, const char* i_pszHost) {
    TAKE(i_pvLibrary, gss_import_name)
    TAKE(i_pvLibrary, gss_init_sec_context)
    TAKE(i_pvLibrary, gss_release_name)
    TAKE(i_pvLibrary, gss_release_buffer)
    TAKE(i_pvLibrary, gss_delete_sec_context)
    gss_OID* const pHostBased = (gss_OID*)Function(i_pvLibrary, "GSS_C_NT_HOSTBASED_SERVICE");
    char szName[256];
    const int nWritten = snprintf(szName, sizeof szName, "%s@%s", i_pszService, i_pszHost);
    if (pHostBased == NULL || nWritten < 0 || (size_t)nWritten >= sizeof szName) {
        return 1;
    }
    gss_buffer_desc text = {(size_t)nWritten, szName};
    gss_OID_desc kerberos = {9, (void*)"\x2a\x86\x48\x86\xf7\x12\x01\x02\x02"};
    gss_name_t name = GSS_C_NO_NAME;
    gss_ctx_id_t context = GSS_C_NO_CONTEXT;
    gss_buffer_desc token = GSS_C_EMPTY_BUFFER;
    OM_uint32 nMinor = 0;
    const int nFailed = p_gss_import_name(&nMinor, &text, *pHostBased, &name) != GSS_S_COMPLETE ||
                        p_gss_init_sec_context(&nMinor, GSS_C_NO_CREDENTIAL, &context, name, &kerberos,
                                               GSS_C_MUTUAL_FLAG, 0, GSS_C_NO_CHANNEL_BINDINGS, GSS_C_NO_BUFFER, NULL,
                                               &token, NULL, NULL) != GSS_S_CONTINUE_NEEDED ||
                        token.length == 0;
    (void)p_gss_release_buffer(&nMinor, &token);
    (void)p_gss_delete_sec_context(&nMinor, &context, GSS_C_NO_BUFFER);
    (void)p_gss_release_name(&nMinor, &name);
    return nFailed;
}

int main(int i_nArguments, char** i_ppszArguments) {
    void* pvLibrary = NULL;
    for (int i = 4; i < i_nArguments; ++i) {
        pvLibrary = dlopen(i_ppszArguments[i], RTLD_NOW);
        if (pvLibrary == NULL) {
            (void)fprintf(stderr, "first_token: %s\n", dlerror());
            return 2;
        }
    }
    if (pvLibrary == NULL) {
        return 2;
    }
    const int bExports = strcmp(i_ppszArguments[1], "exports") == 0;
    return (bExports ? ByExports : ByGss)(pvLibrary, i_ppszArguments[2], i_ppszArguments[3]);
}
