// The groups of rows, one a file.
#pragma once

#include "bench/table.h"

namespace bench {

void InspectionRows(Table& table);
void LogRows(Table& table);
void JobRows(Table& table);
#ifndef _WIN32
void ToolRows(Table& table);
#endif

}  // namespace bench
