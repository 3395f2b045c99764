// The helpers of this folder report without a module of their own; their lines show the tag remembered at attach.
#pragma once
#include "log/log.h"
#define LOG_MODULE nullptr
