# Prints the first C++ example of a tool's page as a source of its own; the compiler names the lines of the page.
/^```cpp$/ && !found { found = inside = 1; print "#line " FNR + 1 " \"" FILENAME "\""; next }
/^```$/ { inside = 0 }
inside { print }
END {
    if (found) exit 0
    print FILENAME ": a tool's page needs an example (a block that begins with ```cpp)" > "/dev/stderr"
    exit 1
}
