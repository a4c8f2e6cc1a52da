#pragma once
#include_next <taskschd.h>
#ifndef __IWeeklyTrigger_INTERFACE_DEFINED__  // of Wine 10; Wine 8 lacks it and the monthly one
#include <weekly_monthly_interfaces.h>
#endif
