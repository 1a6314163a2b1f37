@echo off
rem Registers Quillmarch as a service and starts it. Asks for administrator rights.
"%~dp0Quillmarch.exe" -register
