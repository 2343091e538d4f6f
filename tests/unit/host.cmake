# Unit tests of the host area.
