#include "norvane/runtime/kdcrt_locale_internal.h"

#include <locale.h>
#include <stdlib.h>

void KDCRT_Locale_EnterC(KDCRT_LocaleSwitch* saved) {
  locale_t c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  saved->created = c;
  saved->previous = c ? uselocale(c) : nullptr;
}

void KDCRT_Locale_Leave(KDCRT_LocaleSwitch* saved) {
  if (!saved->created) return;
  uselocale(static_cast<locale_t>(saved->previous));
  freelocale(static_cast<locale_t>(saved->created));
  saved->created = nullptr;
}

float KDCRT_StrToFloatC(const char* text) {
  // Made once and kept for the life of the process; the static's initialisation is thread-safe.
  static const locale_t c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  return c ? strtof_l(text, nullptr, c) : strtof(text, nullptr);
}
