@echo off
rem Tests the language monitor on a test machine; see the report that it writes. With --install PACKAGE also the package.
"%~dp0fieldtest.exe" %*
