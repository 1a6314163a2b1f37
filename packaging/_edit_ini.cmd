@echo off
rem Opens Quillmarch.ini in a text editor; makes it from a sample when there is none.
start "" "%~dp0Quillmarch.exe" -ini
