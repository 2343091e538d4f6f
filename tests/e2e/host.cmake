# Whole-process tests of the host area.
