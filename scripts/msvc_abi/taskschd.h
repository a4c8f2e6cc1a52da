#pragma once
#include_next <taskschd.h>
#include <weekly_monthly_interfaces.h>
