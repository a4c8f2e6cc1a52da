// For programs that load DLLs on the first call of their functions (delay_load.cmake). MinGW's
// runtime then writes the function's address into the import table, which newer linkers make
// read-only. This hook makes the entry writable first, as MSVC's runtime does by itself.
#ifdef __MINGW32__
#include <windows.h>

#include <delayimp.h>

static FARPROC WINAPI MakeEntryWritable(unsigned when, PDelayLoadInfo call) {
  DWORD before = 0;
  if (when == dliStartProcessing) {
    VirtualProtect(call->ppfn, sizeof *call->ppfn, PAGE_READWRITE, &before);
  }
  return nullptr;
}

PfnDliHook __pfnDliNotifyHook2 = MakeEntryWritable;
#endif
