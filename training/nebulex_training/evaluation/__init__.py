"""How good a network is, measured through the program."""
