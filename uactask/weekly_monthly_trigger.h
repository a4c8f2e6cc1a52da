// The Task Scheduler's interfaces for weekly and monthly triggers, which MinGW's headers lack.
// Where taskschd.h declares them, this header adds nothing.
#pragma once

#include <windows.h>

#include <taskschd.h>

#ifdef __MINGW32__

// The guards are those of taskschd.h.
// NOLINTBEGIN(bugprone-reserved-identifier)
#ifndef __IWeeklyTrigger_INTERFACE_DEFINED__
#define __IWeeklyTrigger_INTERFACE_DEFINED__

MIDL_INTERFACE("5038fc98-82ff-436d-8728-a512a57c9dc1")
IWeeklyTrigger : public ITrigger {
  virtual HRESULT STDMETHODCALLTYPE get_DaysOfWeek(short* days) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_DaysOfWeek(short days) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_WeeksInterval(short* weeks) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_WeeksInterval(short weeks) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_RandomDelay(BSTR * delay) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_RandomDelay(BSTR delay) = 0;
};
__CRT_UUID_DECL(IWeeklyTrigger, 0x5038fc98, 0x82ff, 0x436d, 0x87, 0x28, 0xa5, 0x12, 0xa5, 0x7c,
                0x9d, 0xc1)

#endif  // __IWeeklyTrigger_INTERFACE_DEFINED__

#ifndef __IMonthlyTrigger_INTERFACE_DEFINED__
#define __IMonthlyTrigger_INTERFACE_DEFINED__

MIDL_INTERFACE("97c45ef1-6b02-4a1a-9c0e-1ebfba1500ac")
IMonthlyTrigger : public ITrigger {
  virtual HRESULT STDMETHODCALLTYPE get_DaysOfMonth(LONG * days) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_DaysOfMonth(LONG days) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_MonthsOfYear(short* months) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_MonthsOfYear(short months) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_RunOnLastDayOfMonth(VARIANT_BOOL * lastDay) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_RunOnLastDayOfMonth(VARIANT_BOOL lastDay) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_RandomDelay(BSTR * delay) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_RandomDelay(BSTR delay) = 0;
};
__CRT_UUID_DECL(IMonthlyTrigger, 0x97c45ef1, 0x6b02, 0x4a1a, 0x9c, 0x0e, 0x1e, 0xbf, 0xba, 0x15,
                0x00, 0xac)

#endif  // __IMonthlyTrigger_INTERFACE_DEFINED__
// NOLINTEND(bugprone-reserved-identifier)

#endif  // __MINGW32__
