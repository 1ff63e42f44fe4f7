# Turns one of the bridge's ES modules into a legacy gjs module for GNOME
# Shell 43, whose importers see a module's top-level `var` and `function`
# names only. The bridge's files have no imports and export only with
# `export function` and `export const` at the start of a line.
#   cmake -DINPUT=bridge.js -DOUTPUT=legacy/bridge.js -P LegacyModule.cmake
file(READ "${INPUT}" source)
string(REGEX REPLACE "(^|\n)export function " "\\1function " source "${source}")
string(REGEX REPLACE "(^|\n)export const ([A-Za-z_$][A-Za-z0-9_$]*) =" "\\1var \\2 ="
    source "${source}")

# Any other form would load in GNOME 45 and fail only in GNOME 43.
string(REGEX MATCH "(^|\n)[ \t]*(export|import)[ \t{*][^\n]*" left "${source}")
if(left)
    string(STRIP "${left}" left)
    message(FATAL_ERROR "${INPUT}: cannot be made a legacy module, this line "
        "is left: ${left}\nExport only with `export function` or "
        "`export const`, and import nothing (the entry points pass the libraries in).")
endif()
file(WRITE "${OUTPUT}" "${source}")
