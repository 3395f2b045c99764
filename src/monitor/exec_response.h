// Asking the printer how far it has got. Both waits run on the spooler thread of the port's write or end-of-document call
// and hold no lock; the job's cancel event ends them, nothing else limits them.
#pragma once

#include <windows.h>

#include "monitor/records.h"

// Sends a status or execution-response request and reads answers, one read every 500 ms.
//   bWaitExecResp TRUE: until the printer confirms that all data before the request has been processed (0) or a status
//     stops the wait (1168), or the printer is off line (1167).
//   bWaitExecResp FALSE: until the printer reports that it can print (0).
// 87 without port, current job or model. When the job's cancel event ends the wait: the code of its last step.
DWORD WaitExecRespAndStatus(IniPort* pIniPort, BOOL bWaitExecResp) noexcept;

// Sends a request, repeated until it is out whole or the job is cancelled; each send takes 10,000 ms at most. Returns 0,
// 1167 when the device is not connected, 87 without a current job; after a cancel the last send error, or 87.
DWORD WriteReprintChkData(IniPort* pIniPort, const BYTE* pRequest, DWORD cbRequest) noexcept;
