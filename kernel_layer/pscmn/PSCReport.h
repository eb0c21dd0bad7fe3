// The common failure report of the session layer and the driver.
#pragma once

// When the debug level is above 0: writes the error record
// "<function> = <code> : <callee> = <result> \n      [<sourceFile>],[<line>]\n"
// to the log at level 11 and appends the error stack to "./erutil.stat".
// Clears the error stack in every case.
void PSCReportFailure(const char* function, int code, const char* callee, int result,
                      const char* sourceFile, int line);

// The driver's console line: "ERROR : rc = <rc>, <what>\n" on standard output.
void PSCPrintError(int rc, const char* what);
