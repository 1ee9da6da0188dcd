import sys

if sys.argv[1:2] == ["report"]:
    from ftstation.report import main
    sys.exit(main(sys.argv[2:]))

from ftstation.cli import main  # noqa: E402

sys.exit(main(sys.argv[1:]))
