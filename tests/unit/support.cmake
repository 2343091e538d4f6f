# Unit tests of the support area.
