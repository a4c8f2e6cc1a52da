#pragma once
#include_next <rpcndr.h>
#undef DECLSPEC_UUID
#undef MIDL_INTERFACE
#define DECLSPEC_UUID(x) __declspec(uuid(x))
#define MIDL_INTERFACE(x) struct __declspec(uuid(x)) __declspec(novtable)
