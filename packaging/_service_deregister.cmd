@echo off
rem Stops the Quillmarch service and removes it. Asks for administrator rights.
"%~dp0Quillmarch.exe" -deregister
