"""What the packages for other frameworks share: records as rows of numbers, and their forms."""
