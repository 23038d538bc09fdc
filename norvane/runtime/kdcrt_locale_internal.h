// The platform layer's per-thread locale switch. Text that must not depend on the process locale
// (the byte strings' Format prints '.' as the decimal separator whatever the locale) is produced
// between KDCRT_Locale_EnterC and KDCRT_Locale_Leave, which affect the calling thread only.
#ifndef NORVANE_RUNTIME_KDCRT_LOCALE_INTERNAL_H_
#define NORVANE_RUNTIME_KDCRT_LOCALE_INTERNAL_H_

// What KDCRT_Locale_Leave needs to undo a switch.
struct KDCRT_LocaleSwitch {
  void* created;   // the "C" locale made for the switch; null when none could be made
  void* previous;  // the thread's locale before the switch
};

// KDCRT_Locale_EnterC creates a "C" locale and makes it the calling thread's locale, recording
// the previous one in saved. If the locale cannot be created, nothing is switched.
void KDCRT_Locale_EnterC(KDCRT_LocaleSwitch* saved);
// KDCRT_Locale_Leave restores the thread's previous locale and frees the one created.
void KDCRT_Locale_Leave(KDCRT_LocaleSwitch* saved);

// KDCRT_StrToFloatC is strtof(text, nullptr) under the "C" locale, whatever the thread's locale
// (plain strtof if no "C" locale object can be made). text must be terminated.
float KDCRT_StrToFloatC(const char* text);

#endif  // NORVANE_RUNTIME_KDCRT_LOCALE_INTERNAL_H_
