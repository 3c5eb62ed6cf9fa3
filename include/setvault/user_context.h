// USERDATA_CONTEXT: who is writing.
#ifndef SETVAULT_USER_CONTEXT_H_
#define SETVAULT_USER_CONTEXT_H_

#include <cstdint>

namespace KorvoSetvault {

// Kinds of caller context.
enum UserContextKind : int32_t {
  // An external caller (a user or a management client). During boot such a
  // caller may write user data only while an upgrade is in progress.
  kExternalContext = 0,
  // The host's own automatic configuration: user data goes to the
  // auto-configuration value, and Update replaces members by context.
  kAutoConfigContext = 1,
};

// The caller's context on writes. Any kind other than kExternalContext
// writes user data as auto-configuration.
struct USERDATA_CONTEXT {
  int32_t kind = kExternalContext;
};

}  // namespace KorvoSetvault

#endif  // SETVAULT_USER_CONTEXT_H_
