"""Schema upgrades, the same for the station's SQLite file and the line's
PostgreSQL database: a list of (version, [statement, ...]) steps, and one row
in schema_version holding the version a database is at."""


def upgrade(execute, version, steps, newer, placeholder):
    """Runs the steps a database at `version` lacks and records the latest
    version, through `execute` inside the caller's transaction. `newer(latest)`
    is the error raised for a database newer than these steps; `placeholder` is
    the driver's parameter mark ("?" or "%s")."""
    latest = steps[-1][0]
    if version > latest:
        raise newer(latest)
    for number, statements in steps:
        if number > version:
            for sql in statements:
                execute(sql)
    if version < latest:
        execute("DELETE FROM schema_version")
        execute(f"INSERT INTO schema_version (version) VALUES ({placeholder})", (latest,))
    return latest
