# The C headers' comments as Doxygen reads them: those before a declaration, those behind one, and the file's own.
s/\\/\\\\/g
1s/^\/\* ([a-z_]+\.h): /\/** \\file\n * /
s/^( *)\/\* /\1\/** /
s/([;,]|[0-9]) +\/\* /\1 \/**< /
