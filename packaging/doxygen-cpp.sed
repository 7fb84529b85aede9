# The C++ header's comments as Doxygen reads them: those before a declaration, those behind one, and the file's own.
s/\\/\\\\/g
1s/^\/\/ ([a-z_]+\.hpp): /\/\/\/ \\file\n\/\/\/ /
s/^( *)\/\/( |$)/\1\/\/\/\2/
s/(;|\}) +\/\/ /\1 \/\/\/< /
