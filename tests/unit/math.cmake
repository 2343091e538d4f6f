# Unit tests of the math area.
