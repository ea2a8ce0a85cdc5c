"""The guide's loops for a shell and for GNU parallel."""

import unittest

from recipes import RecipeTest, recipe


class Recipes(RecipeTest):
    def test_a_shell(self):
        self.check_loop(recipe("A shell"))

    def test_gnu_parallel(self):
        self.check_loop(recipe("GNU parallel"))


if __name__ == "__main__":
    unittest.main()
