# shellcheck shell=bash
# The documents: what is made of sources can be made, and says what the header says.
check "packages of the documents" scripts/install-packages docs
check "pictures" scripts/pictures --check
check "reference of the interface" scripts/reference
check "manual pages" scripts/checks/manuals
check "spelling" scripts/checks/spelling
check "subjects of the commits" scripts/checks/commits
