#pragma once
// Exact-match patterns for death tests. Windows builds of GoogleTest have only its simple
// regular expressions, so a pattern may use \w, \d and escaped punctuation, nothing more.

#include <string>

inline std::string Quoted(const std::string &text)
{
   std::string out;
   for (char c : text) {
      if (std::string(".[](){}*+?|^$\\").find(c) != std::string::npos) {
         out += '\\';
      }
      out += c;
   }
   return out;
}

#if defined(_WIN32)
constexpr int kFirstPanicExit = -1;
#else
constexpr int kFirstPanicExit = 255;  // -1 as a POSIX exit status reads
#endif
