// The module that the monitor's routines report as: tag, NUL, log folder name.
#pragma once
#include "log/log.h"
inline constexpr char kMonitorModule[] = "DRV_LM \0PrinterDriver";
#define LOG_MODULE kMonitorModule
