"""The command lines that are measured, and where things are."""

from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
LARKSPUR = ROOT / "build/release/larkspur"
SITE = ROOT / "build/release/larkspur-site"
FLOOR = ROOT / "build/release/bench/floor"
STORE = ROOT / "build/bench"

ACCOUNT = "sitea"  # of the sandbox


def extract(package, site, metadata="", program=LARKSPUR):
    """Installs the package into the site itself."""
    return [
        program,
        "--extract-application",
        f"--application-full-name=file:///{package}",
        f"--vhost-path={site.parent}",
        f"--www-root={site}",
        f"--user-name={ACCOUNT}",
        "--application-subdirectory=.",
        "--metadata-file",
        metadata,
    ]


def remove(site, program=LARKSPUR):
    """Removes what standard input lists from the directory `app` of the site."""
    return [
        program,
        "--delete-application",
        f"--user-name={ACCOUNT}",
        f"--vhost-path={site.parent}",
        f"--www-root={site}",
        "--application-subdirectory=app",
    ]


def install_fragment(package, host):
    return [
        LARKSPUR,
        "--install-apache-conf",
        f"--vhost-path={host}",
        "--www-root=/w",
        "--application-subdirectory=.",
        f"--metadata-file={package}/APP-META.xml",
        "--config-file-name=bench.conf",
    ]


def run_script(package, file, language):
    return [
        LARKSPUR,
        "--run-application-script",
        f"--application-full-name=file:///{package}",
        "--script-name=install",
        f"--user-name={ACCOUNT}",
        f"--script-file-name={file}",
        f"--script-language={language}",
    ]
