# What every header says in the same way need not be written there: the parameter of a visitor's apply() is what is
# visited, and copying and assignment copy. Lines stay where they are.
/^ +void apply\(osg::[A-Za-z]+& [A-Za-z]+\) override;$/ {
    parameter = $0
    sub(/.*& /, "", parameter)
    sub(/\).*/, "", parameter)
    print $0 " /**< @param " parameter " what is visited */"
    next
}
/^ +[A-Za-z]+\(const [A-Za-z]+& other\);$/ || /operator=\(const [A-Za-z]+& other\);$/ { print ""; next }
/^ +[A-Za-z]+\($/ || /operator=\($/ { copied = 1 }
copied { copied = !/;$/; print ""; next }
{ print }
