<?php // tells what runs it, its settings and its arguments
echo PHP_SAPI, " ", ini_get("variables_order"), " open_basedir=", ini_get("open_basedir"), " ", implode(",", $argv), "\n";
