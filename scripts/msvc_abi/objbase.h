#pragma once
#include_next <objbase.h>
extern "C++" template <typename T>
void** IID_PPV_ARGS_Helper(T** p) {
  return reinterpret_cast<void**>(p);
}
#define IID_PPV_ARGS(p) __uuidof(**(p)), IID_PPV_ARGS_Helper(p)
