#pragma once
#include <vcruntime_new.h>
