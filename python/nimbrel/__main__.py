"""`python -m nimbrel` is the command `nimbrel`."""

from nimbrel.command import main

if __name__ == "__main__":
    main()
