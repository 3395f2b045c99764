// Kinds of machines whose spooler loads no monitor of ours.
#pragma once

namespace lmctl {

// An ARM64 machine, whatever the program itself is made for: its spooler loads ARM64 libraries alone.
bool IsArm64();

// Whether a policy turns on Windows' protected print mode, which loads no language monitor (documented policy "Configure
// Windows protected print").
bool IsProtectedPrintMode();

}  // namespace lmctl
