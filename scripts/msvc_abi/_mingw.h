#pragma once
#define __MINGW_SELECTANY __declspec(selectany)
#define __MINGW_EXTENSION
