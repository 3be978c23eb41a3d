# SPDX-License-Identifier: Apache-2.0
# page HEADING: the commands, or the program, below a heading of docs/installing.md. Sourced.
page() {
  awk -v heading="## $1" '$0 == heading { here = 1 } here && /^```/ { if (inside++) exit; next } inside { print }
    END { if (!inside) exit 1 }' "$(dirname "${BASH_SOURCE[0]}")/../../docs/installing.md"
}
