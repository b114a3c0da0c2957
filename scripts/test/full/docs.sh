# shellcheck shell=bash
# The documents: what is made of sources can be made, and says what the header says.
check "pictures" scripts/pictures --check
check "reference of the interface" scripts/reference
check "manual pages of the interface" scripts/checks/interface-pages
check "spelling" scripts/checks/spelling
check "subjects of the commits" scripts/checks/commits
