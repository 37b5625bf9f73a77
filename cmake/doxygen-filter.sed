# Doxygen input filter for include/: the headers keep the project's plain "//"
# comments, and this turns them into documentation, line for line (so that
# warnings point at the right lines).
# The comment above "#pragma once" describes the header itself.
s|^#pragma once$|/// @file|
# A comment on lines of its own documents what follows it.
s%^\([[:space:]]*\)//\( \|$\)%\1///\2%
# A comment after a declaration documents that declaration (lint markers excepted).
/\/\/ NOLINT/!s|\([;{,)]\)\([[:space:]]*\)// |\1\2///< |
