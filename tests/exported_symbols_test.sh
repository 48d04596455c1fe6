#!/bin/bash
# exported_symbols_test.sh LIST LIBRARY...: what the libraries export is the checked list, so that a
# change of the binary interface is seen in review. Instances of standard templates are left out: they
# differ between compilers. Renew with: exported_symbols_test.sh - LIBRARY... >tests/exported-symbols.txt
set -euo pipefail
list=$1
shift

exported() {
  local library
  for library; do
    echo "# ${library##*/}" | sed 's/\.so.*//'
    # Constructors and destructors have several entries of one name.
    nm -D --defined-only "$library" | c++filt | cut -d' ' -f2- |
      sed -E 's/std::__cxx11::/std::/g; s/std::basic_string<char, std::char_traits<char>, std::allocator<char> ?>/std::string/g; s/std::vector<std::string, std::allocator<std::string ?> ?>/std::vector<std::string>/g' |
      grep -vE '^[A-Za-z] ([^(]* )?(typeinfo (name )?for |vtable for |guard variable for )?(std|__gnu_cxx)::' |
      cut -c3- | LC_ALL=C sort -u
  done
}

if [ "$list" = - ]; then exported "$@"; exit; fi
diff -u "$list" <(exported "$@") || {
  echo "The binary interface is another. docs/abi.md says what that means; if it is wanted, renew"
  echo "the list as the head of this script says."
  exit 1
}
