# Unit tests of qzcall's parts: the call script notation, value forms, statement splitting,
# the result layouts of the SQL shell.
